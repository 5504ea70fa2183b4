// A shared object that is no plug-in.
extern "C" __attribute__((visibility("default"))) int stranger();
extern "C" int stranger()
{
    return 1;
}
