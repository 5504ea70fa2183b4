// A host that loads a plug-in, runs it for a moment, and lets go of it.
#include <kxPAL/Application.h>
#include <kxPAL/Plugin.h>
#include <kxPAL/Timer.h>

#include <cstdio>
#include <string>

namespace {

// [host]
class PluginRun : public Murn::Timer {
public:
    bool begin(const std::string& path)
    {
        _plugin = Murn::Plugin::Load(path);
        if (_plugin == nullptr)
            return false;  // the log says why
        std::printf("%s from %s\n", _plugin->name(), _plugin->pluginFile().c_str());
        if (_plugin->start()) {
            start(50, nullptr);  // for 50 ms
            return true;
        }
        Murn::Plugin::Unload(_plugin);
        return false;
    }

    void timeout() override
    {
        stop();
        _plugin->stop();
        if (!Murn::Plugin::Unload(_plugin))  // deletes the plug-in and closes its shared object
            std::printf("the plug-in is still in use\n");
        Murn::Application::Quit();  // after that: a loop leaves no object behind
    }

private:
    Murn::Plugin* _plugin = nullptr;
};
// [end]

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2)
        return 2;
    Murn::Application application(argc, argv);
    PluginRun run;
    if (!run.begin(argv[1]))
        return 1;
    application.exec();
    return 0;
}
