// Plug-ins and the calls of the dynamic loader behind them.
#include <kxPAL/Plugin.h>

#include "InterposeLibc.h"
#include "PluginFiles.h"
#include "Runtime.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Murn::Plugin;

namespace {

/// Notes the calls by which shared objects are opened and closed, and lets the closing fail where that is asked for.
class PluginCallsTest : public RuntimeTest {
protected:
    int close(int (*real)(void*), void* handle)
    {
        _log.note("dlclose " + addressText(handle));
        if (!_closingFails)
            return real(handle);
        _notClosed = handle;
        openingError(noSuchFile);         // an earlier error is not what is to be told,
        ::dlopen(noSuchFile, RTLD_LAZY);  // this one is
        return 1;                         // any value but 0 counts as a failure
    }

    /// For the shared object that a test had stay open.
    void closeForGood()
    {
        _closingFails = false;
        EXPECT_EQ(::dlclose(_notClosed), 0);
    }

    static constexpr const char* noSuchFile = "/there/is/no/such/file.so";
    const std::string _good = pluginPath("good");
    bool _closingFails = false;
    void* _notClosed = nullptr;
    interpose::CallLog _log;
    Interposed<void*(const char*, int)> _open{
        interpose::dlopen, [this](auto* real, const char* path, int flags) {
            if (std::string(path) != noSuchFile)
                _log.note("dlopen " + std::string(path) + " " + std::to_string(flags));
            return real(path, flags);
        }};
    Interposed<int(void*)> _close{interpose::dlclose, [this](auto* real, void* handle) { return close(real, handle); }};
};

auto isNotClosed(const std::string& error)
{
    return isWarning("Shared library failed to close with error: " + error + "!");
}

TEST_F(PluginCallsTest, opensOnceWithLazyBindingAloneAndClosesOnce)
{
    Plugin* const plugin = Plugin::Load(_good);
    const std::string handle = addressText(fieldAt<void*>(plugin, sizeof(Plugin) - sizeof(void*)));
    EXPECT_THAT(_log.calls(), ElementsAre("dlopen " + _good + " 1"));

    EXPECT_TRUE(Plugin::Unload(plugin));

    EXPECT_THAT(_log.calls(), ElementsAre("dlopen " + _good + " 1", "dlclose " + handle));
    logged();
}

TEST_F(PluginCallsTest, opensNothingForAPathWithAZeroByteInIt)
{
    using namespace std::string_literals;
    EXPECT_EQ(Plugin::Load(_good + "\0.so"s), nullptr);
    EXPECT_EQ(Plugin::Load("\0"s + _good), nullptr);  // no path at all would be the program itself
    EXPECT_THAT(_log.calls(), IsEmpty());
    const std::string error = "failed to open with error: zero byte in the path!";
    EXPECT_THAT(logged(), ElementsAre(isWarning("Shared library \"" + _good + "\" " + error),
                                      isWarning("Shared library \"\" " + error)));
}

TEST_F(PluginCallsTest, findsNoSymbolByANameWithAZeroByteInIt)
{
    using namespace std::string_literals;
    void* const handle = Plugin::PlatformLoad(_good);
    EXPECT_NE(Plugin::FindSymbol(handle, "__Ormet_PAL_PluginLoad"), nullptr);
    EXPECT_EQ(Plugin::FindSymbol(handle, "__Ormet_PAL_PluginLoad\0s"s), nullptr);
    EXPECT_TRUE(Plugin::PlatformUnload(handle));
    logged();
}

TEST_F(PluginCallsTest, closesNothingThatIsStillReferenced)
{
    Plugin* const plugin = Plugin::Load(_good);
    plugin->ref();
    const std::size_t before = _log.calls().size();

    EXPECT_FALSE(Plugin::Unload(plugin));
    EXPECT_EQ(_log.calls().size(), before);

    plugin->deref();
    EXPECT_TRUE(Plugin::Unload(plugin));
    logged();
}

TEST_F(PluginCallsTest, closesOnceInALateCleanUp)
{
    const KeptOpen kept(_good);
    Plugin* const plugin = Plugin::Load(_good);
    const std::string handle = addressText(fieldAt<void*>(plugin, sizeof(Plugin) - sizeof(void*)));
    const std::size_t before = _log.calls().size();

    plugin->deref();

    EXPECT_EQ(_log.calls().size(), before + 1);
    EXPECT_EQ(_log.calls().back(), "dlclose " + handle);
    logged();
}

TEST_F(PluginCallsTest, tellsWhenASharedObjectIsNotClosedAlthoughThePluginIsGone)
{
    const std::string error = openingError(noSuchFile);
    Plugin* const plugin = Plugin::Load(_good);
    _closingFails = true;

    EXPECT_FALSE(Plugin::Unload(plugin));

    EXPECT_THAT(logged(), ElementsAre(isOpened(_good), isDestroyed(), isUnloading(_good), isNotClosed(error)));
    closeForGood();
    EXPECT_FALSE(isOpen(_good));
}

TEST_F(PluginCallsTest, tellsTheErrorAlsoWhenTheMessageLoadsSomethingItself)
{
    const std::string error = openingError(noSuchFile);
    const Interposed loading(interpose::localtime, [](auto* real, const time_t* seconds) {
        openingError("/nor/is/this/one.so");
        return real(seconds);
    });

    EXPECT_EQ(Plugin::Load(noSuchFile), nullptr);

    EXPECT_THAT(logged(), ElementsAre(isWarning("Shared library \"" + std::string(noSuchFile) +
                                                "\" failed to open with error: " + error + "!")));
}

TEST_F(PluginCallsTest, tellsOfAFailureThatTheLoaderSaysNothingOf)
{
    Plugin* const plugin = Plugin::Load(_good);
    void* handle = nullptr;
    {
        const Interposed failing(interpose::dlclose, [&](auto*, void* which) {
            handle = which;
            ::dlerror();
            return 1;
        });
        Plugin::Unload(plugin);
    }
    EXPECT_THAT(logged().back(), isNotClosed("(null)"));
    EXPECT_EQ(::dlclose(handle), 0);
}

TEST_F(PluginCallsTest, tellsWhenALateCleanUpClosesNothing)
{
    const std::string error = openingError(noSuchFile);
    Plugin* const plugin = Plugin::Load(_good);
    _closingFails = true;

    plugin->deref();

    EXPECT_THAT(logged(), ElementsAre(isOpened(_good), isDestroyed(), isWarning("Performing late plugin cleanup !"),
                                      isNotClosed(error), isUnloading(_good)));
    closeForGood();
}

TEST_F(PluginCallsTest, loadsNothingFromABrokenFileThatIsNotClosed)
{
    const std::string error = openingError(noSuchFile);
    const std::string path = pluginPath("null_entry");
    _closingFails = true;

    EXPECT_EQ(Plugin::Load(path), nullptr);

    EXPECT_THAT(logged(),
                ElementsAre(isOpened(path), isWarning("The plugin \"" + path + "\" is broken !"), isNotClosed(error)));
    closeForGood();
}

TEST_F(PluginCallsTest, makesNoCallAtAllForAPluginThatWasNeverLoaded)
{
    struct Inner : Plugin {
        const char* name() const override { return "inner"; }
        bool start() override { return true; }
        void stop() override {}
    };
    {
        const Inner plugin;
    }
    EXPECT_THAT(_log.calls(), IsEmpty());
    logged();
}

}  // namespace
