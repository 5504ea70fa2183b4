// A host that looks at the library's table of accept functions under its exported name.
#include <cstdio>

// As GLib declares it, for a host without GLib: prepare, check, dispatch and finalize, and two that GLib uses itself.
struct FunctionTable {
    void* entries[6];
};
extern FunctionTable funcs;

int main()
{
    for (void* const entry : funcs.entries)
        std::printf("%d", entry != nullptr ? 1 : 0);
    std::printf("\n");
    return 0;
}
