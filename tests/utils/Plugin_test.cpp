// Plug-ins: what objects of them promise, and real shared objects that are loaded and unloaded.
#include <kxPAL/Logger.h>
#include <kxPAL/Plugin.h>
#include <malloc.h>

#include <cstdlib>
#include <fstream>
#include <new>
#include <type_traits>

#include "FatalTest.h"
#include "PluginFiles.h"
#include "Runtime.h"
#include "Sanitizers.h"
#include "VirtualTable.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Murn::Plugin;

namespace {

constexpr const char* source = "src/utils/Plugin.cpp";
constexpr const char* platformSource = "src/utils/Plugin_Unix.cpp";
constexpr const char* entryName = "__Ormet_PAL_PluginLoad";

/// A plug-in of the test's own program.
class Inner : public Plugin {
public:
    explicit Inner(Record& record) : _record(record) {}
    ~Inner() override { _record.noteDestruction(); }

    void event(Murn::Event* event) override
    {
        _record.noteEvent(event->_type);
        Plugin::event(event);
    }

    const char* name() const override { return "inner"; }

    bool start() override
    {
        _started = true;
        return true;
    }

    void stop() override { _started = false; }

    bool _started = false;

private:
    Record& _record;
};

class PluginTest : public RuntimeTest {
protected:
    const std::string _good = pluginPath("good");
    Record _record;
};

// The object

TEST_F(PluginTest, hasItsFieldsRightBehindThoseOfAnObject)
{
    Plugin* const plugin = Plugin::Load(_good);
    ASSERT_NE(plugin, nullptr);
    void* const handle = fieldAt<void*>(plugin, sizeof(Murn::Object) + sizeof(std::string));

    EXPECT_EQ(sizeof(Plugin), sizeof(Murn::Object) + sizeof(std::string) + sizeof(void*));
    EXPECT_EQ(reinterpret_cast<const char*>(&plugin->pluginFile()),
              reinterpret_cast<const char*>(plugin) + sizeof(Murn::Object));
    EXPECT_EQ(handle, handleOf(_good));

    EXPECT_TRUE(Plugin::Unload(plugin));
    logged();
}

TEST_F(PluginTest, hasItsVirtualOperationsInTheSlotsThatHostsExpect)
{
    constexpr std::size_t destructorSlot = 0;
    constexpr std::size_t deletingDestructorSlot = 1;
    EXPECT_EQ(virtualSlot(&Plugin::event), 2U);
    EXPECT_EQ(virtualSlot(&Plugin::destroy), 3U);
    EXPECT_EQ(virtualSlot(&Plugin::canUnload), 4U);
    EXPECT_EQ(virtualSlot(&Plugin::name), 5U);
    EXPECT_EQ(virtualSlot(&Plugin::start), 6U);
    EXPECT_EQ(virtualSlot(&Plugin::stop), 7U);

    auto* const deleted = new Inner(_record);
    callAddress(addressInSlot(deleted, deletingDestructorSlot), deleted);
    EXPECT_EQ(_record.destructions(), 1);

    alignas(Inner) char memory[sizeof(Inner)];
    auto* const destroyed = new (memory) Inner(_record);
    callAddress(addressInSlot(destroyed, destructorSlot), destroyed);
    EXPECT_EQ(_record.destructions(), 2);
    EXPECT_THAT(logged(), ElementsAre(isUnloading(""), isUnloading("")));
}

TEST_F(PluginTest, leavesEventsToObject)
{
    EXPECT_TRUE((std::is_same_v<decltype(&Plugin::event), void (Murn::Object::*)(Murn::Event*)>));
}

TEST_F(PluginTest, startsWithoutFileHandleAndReferences)
{
    Inner plugin(_record);

    EXPECT_EQ(plugin.pluginFile(), "");
    EXPECT_EQ(fieldAt<void*>(&plugin, sizeof(Murn::Object) + sizeof(std::string)), nullptr);
    EXPECT_EQ(plugin.refsCount(), 0U);
    EXPECT_EQ(plugin.thread(), mainThread());
    logged();
}

TEST_F(PluginTest, logsItsEndAlsoWhenItWasNeverLoaded)
{
    {
        const Inner plugin(_record);
    }

    EXPECT_THAT(logged(), ElementsAre(isUnloading("")));
}

TEST_F(PluginTest, canBeUnloadedWithOneReferenceOnly)
{
    auto* const plugin = new Inner(_record);
    EXPECT_FALSE(plugin->canUnload());
    plugin->ref();
    EXPECT_TRUE(plugin->canUnload());
    plugin->ref();
    EXPECT_FALSE(plugin->canUnload());
    plugin->deref();
    EXPECT_TRUE(plugin->canUnload());

    plugin->deref();
    EXPECT_EQ(_record.destructions(), 1);
    logged();
}

TEST_F(PluginTest, isDestroyedAtOnceAlsoWhenBoundToAThreadWithEventsForIt)
{
    std::atomic<int> disposals{0};
    auto* const plugin = new Inner(_record);
    ASSERT_EQ(plugin->thread(), mainThread());
    post(plugin, 7, disposals);

    plugin->destroy();

    EXPECT_EQ(_record.destructions(), 1);
    EXPECT_EQ(disposals, 1);
    pump();
    EXPECT_THAT(_record.types(), IsEmpty());
    logged();
}

TEST_F(PluginTest, isDestroyedAtOnceOnTheThreadThatDestroysIt)
{
    auto* const plugin = new Inner(_record);

    onForeignThread([&] {
        plugin->destroy();
        EXPECT_EQ(_record.destructions(), 1);
    });
    logged();
}

TEST_F(PluginTest, doesNothingWhenDestroyIsCalledWithoutAnObject)
{
    auto* const plugin = new Inner(_record);
    void* const destroy = addressInSlot(plugin, virtualSlot(&Plugin::destroy));

    callAddress(destroy, nullptr);

    EXPECT_EQ(_record.destructions(), 0);
    callAddress(destroy, plugin);
    EXPECT_EQ(_record.destructions(), 1);
    logged();
}

// Loading

TEST_F(PluginTest, loadsAPluginWithOneReferenceAndItsFile)
{
    Plugin* const plugin = Plugin::Load(_good);
    ASSERT_NE(plugin, nullptr);

    EXPECT_EQ(plugin->refsCount(), 1U);
    EXPECT_TRUE(plugin->canUnload());
    EXPECT_EQ(plugin->pluginFile(), _good);
    EXPECT_STREQ(plugin->name(), "good");
    EXPECT_TRUE(plugin->start());
    plugin->stop();
    EXPECT_TRUE(isOpen(_good));
    EXPECT_THAT(logged(), ElementsAre(isOpened(_good)));

    EXPECT_TRUE(Plugin::Unload(plugin));
}

TEST_F(PluginTest, belongsToTheThreadThatLoadsIt)
{
    Plugin* const plugin = Plugin::Load(_good);
    EXPECT_EQ(plugin->thread(), mainThread());
    EXPECT_TRUE(Plugin::Unload(plugin));

    Worker worker;
    worker.run([&] {
        Plugin* const another = Plugin::Load(_good);
        EXPECT_EQ(another->thread(), worker.thread());
        EXPECT_TRUE(Plugin::Unload(another));
    });
    onForeignThread([&] {
        Plugin* const another = Plugin::Load(_good);
        EXPECT_EQ(another->thread(), nullptr);
        EXPECT_TRUE(Plugin::Unload(another));
    });
    logged();
}

TEST_F(PluginTest, receivesEventsLikeEveryObject)
{
    Plugin* const plugin = Plugin::Load(_good);

    post(plugin, 7);
    pump();

    EXPECT_THAT(logged(), ElementsAre(isOpened(_good), IsLogged("good", messageLevel, "event 7")));
    EXPECT_TRUE(Plugin::Unload(plugin));
}

TEST_F(PluginTest, isMadeAnewByEachLoad)
{
    Plugin* const first = Plugin::Load(_good);
    Plugin* const second = Plugin::Load(_good);
    ASSERT_NE(first, second);

    EXPECT_TRUE(Plugin::Unload(first));
    EXPECT_TRUE(isOpen(_good));
    EXPECT_STREQ(second->name(), "good");
    EXPECT_TRUE(Plugin::Unload(second));
    EXPECT_FALSE(isOpen(_good));
    logged();
}

TEST_F(PluginTest, keepsItsSymbolsToItself)
{
    Plugin* const plugin = Plugin::Load(_good);

    EXPECT_EQ(::dlsym(RTLD_DEFAULT, entryName), nullptr);

    EXPECT_TRUE(Plugin::Unload(plugin));
    logged();
}

TEST_F(PluginTest, isNotLoadedFromAMissingFile)
{
    const std::string path = pluginPath("100%s");

    EXPECT_EQ(Plugin::Load(path), nullptr);

    EXPECT_THAT(logged(), ElementsAre(isWarning("Shared library \"" + path +
                                                "\" failed to open with error: " + openingError(path) + "!")));
}

TEST_F(PluginTest, isNotLoadedFromAFileThatIsNoSharedObject)
{
    const std::string path = KXPAL_TEXT_FILE;

    EXPECT_EQ(Plugin::Load(path), nullptr);

    EXPECT_THAT(logged(), ElementsAre(isWarning("Shared library \"" + path +
                                                "\" failed to open with error: " + openingError(path) + "!")));
}

TEST_F(PluginTest, isNotLoadedFromASharedObjectWithoutAnEntryFunction)
{
    const std::string path = pluginPath("without_entry");

    EXPECT_EQ(Plugin::Load(path), nullptr);

    EXPECT_THAT(logged(),
                ElementsAre(isOpened(path), isWarning("The shared object " + path + " is not a valid PAL plugin !"),
                            isClosed()));
    EXPECT_FALSE(isOpen(path));
}

TEST_F(PluginTest, isLookedForInTheSystemsFoldersByANameWithoutASlash)
{
    EXPECT_EQ(Plugin::Load("libm.so.6"), nullptr);

    EXPECT_THAT(logged(),
                ElementsAre(isOpened("libm.so.6"), isWarning("The shared object libm.so.6 is not a valid PAL plugin !"),
                            isClosed()));
}

TEST_F(PluginTest, isNotLoadedWhenItsEntryFunctionReturnsNull)
{
    const std::string path = pluginPath("null_entry");

    EXPECT_EQ(Plugin::Load(path), nullptr);

    EXPECT_THAT(logged(),
                ElementsAre(isOpened(path), isWarning("The plugin \"" + path + "\" is broken !"), isClosed()));
    EXPECT_FALSE(isOpen(path));
}

TEST_F(PluginTest, isLoadedWhenAFunctionIsMissingThatNobodyCalls)
{
    if (std::getenv("LD_BIND_NOW") != nullptr)
        GTEST_SKIP() << "the environment has all symbols bound when a shared object is opened";

    Plugin* const plugin = Plugin::Load(pluginPath("missing_function"));

    ASSERT_NE(plugin, nullptr);
    EXPECT_STREQ(plugin->name(), "missing_function");
    EXPECT_TRUE(Plugin::Unload(plugin));
    logged();
}

TEST_F(PluginTest, isNotLoadedWhenAVariableIsMissing)
{
    const std::string path = pluginPath("missing_data");

    EXPECT_EQ(Plugin::Load(path), nullptr);

    EXPECT_THAT(logged(), ElementsAre(isWarning("Shared library \"" + path +
                                                "\" failed to open with error: " + openingError(path) + "!")));
}

// Unloading

TEST_F(PluginTest, isDestroyedFirstAndClosedAfterwards)
{
    Plugin* const plugin = Plugin::Load(_good);

    EXPECT_TRUE(Plugin::Unload(plugin));

    EXPECT_THAT(logged(), ElementsAre(isOpened(_good), isDestroyed(), isUnloading(_good), isClosed()));
    EXPECT_FALSE(isOpen(_good));
}

TEST_F(PluginTest, dropsTheEventsThatAreLeftForIt)
{
    std::atomic<int> disposals{0};
    Plugin* const plugin = Plugin::Load(_good);
    post(plugin, 7, disposals);

    EXPECT_TRUE(Plugin::Unload(plugin));
    pump();

    EXPECT_EQ(disposals, 1);
    EXPECT_THAT(logged(), ElementsAre(isOpened(_good), isDestroyed(), isUnloading(_good), isClosed()));
}

TEST_F(PluginTest, staysLoadedAndUntouchedWhileItIsReferenced)
{
    Plugin* const plugin = Plugin::Load(_good);
    plugin->ref();

    EXPECT_FALSE(Plugin::Unload(plugin));

    EXPECT_THAT(logged(), ElementsAre(isOpened(_good), isWarning("The plugin \"" + _good +
                                                                 "\" can not be unloaded because it is still "
                                                                 "referenced !")));
    EXPECT_EQ(plugin->refsCount(), 2U);
    EXPECT_TRUE(plugin->isValid());
    EXPECT_EQ(plugin->pluginFile(), _good);
    EXPECT_TRUE(isOpen(_good));
    EXPECT_STREQ(plugin->name(), "good");

    plugin->deref();
    EXPECT_TRUE(Plugin::Unload(plugin));
    EXPECT_EQ(logged().size(), 5U);
    EXPECT_FALSE(isOpen(_good));
}

TEST_F(PluginTest, hasNoSayInItsUnloading)
{
    const std::string path = pluginPath("contrary");
    Plugin* const plugin = Plugin::Load(path);
    plugin->ref();
    EXPECT_TRUE(plugin->canUnload());
    EXPECT_FALSE(Plugin::Unload(plugin));

    plugin->deref();
    EXPECT_FALSE(plugin->canUnload());
    EXPECT_TRUE(Plugin::Unload(plugin));
    EXPECT_FALSE(isOpen(path));
    logged();
}

TEST_F(PluginTest, closesItsSharedObjectByItselfWhenItsLastReferenceIsDroppedElsewhere)
{
    Plugin* const plugin = Plugin::Load(_good);
    {
        const KeptOpen kept(_good);

        plugin->deref();

        EXPECT_THAT(logged(), ElementsAre(isOpened(_good), isDestroyed(), isWarning("Performing late plugin cleanup !"),
                                          isClosed(), isUnloading(_good)));
        EXPECT_TRUE(isOpen(_good));
    }
    EXPECT_FALSE(isOpen(_good));
}

TEST_F(PluginTest, leavesNothingOpenWhateverTemplatesItUses)
{
    const std::string path = pluginPath("shared_pointers");
    Plugin* const plugin = Plugin::Load(path);
    ASSERT_NE(plugin, nullptr);
    EXPECT_TRUE(plugin->start());
    plugin->stop();

    EXPECT_TRUE(Plugin::Unload(plugin));

    EXPECT_FALSE(isOpen(path));
    logged();
}

/// How much the process holds: its mappings, and the bytes that it has from the heap.
struct Holdings {
    std::size_t mappings = 0;
    std::size_t heapBytes = 0;
};

Holdings holdings()
{
    Holdings held;
#if !KXPAL_TESTS_ADDRESS_SANITIZER && !KXPAL_TESTS_THREAD_SANITIZER
    held.heapBytes = ::mallinfo2().uordblks;  // the sanitizers have heaps of their own, and maps for them
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);)
        ++held.mappings;
#endif
    return held;
}

TEST_F(PluginTest, leavesNothingBehindWhenLoadedAndUnloadedAThousandTimes)
{
    const unsigned int mask = Murn::Logger::__logLevelMask.exchange(0);
    const auto loadAndUnload = [this](int times) {
        bool good = true;
        for (int time = 0; time < times; ++time) {
            Plugin* const plugin = Plugin::Load(_good);
            good = good && plugin != nullptr && Plugin::Unload(plugin);
        }
        return good;
    };
    EXPECT_TRUE(loadAndUnload(10));
    const Holdings before = holdings();

    EXPECT_TRUE(loadAndUnload(1000));

    const Holdings after = holdings();
    EXPECT_EQ(after.mappings, before.mappings);
    EXPECT_LE(after.heapBytes, before.heapBytes + 1024);
    EXPECT_FALSE(isOpen(_good));
    Murn::Logger::__logLevelMask = mask;
}

// The platform's part by itself

TEST_F(PluginTest, opensFindsAndClosesWithoutAPlugin)
{
    const std::string path = pluginPath("without_entry");

    void* const handle = Plugin::PlatformLoad(path);
    ASSERT_NE(handle, nullptr);
    void* const function = Plugin::FindSymbol(handle, "anotherEntry");
    ASSERT_NE(function, nullptr);
    EXPECT_EQ(reinterpret_cast<int (*)()>(function)(), 7);
    EXPECT_EQ(Plugin::FindSymbol(handle, entryName), nullptr);
    EXPECT_TRUE(Plugin::PlatformUnload(handle));

    EXPECT_THAT(logged(), ElementsAre(isOpened(path), isClosed()));
    EXPECT_FALSE(isOpen(path));
}

// Broken contracts

TEST_F(PluginTest, endsTheProcessWhenNothingIsToBeUnloaded)
{
    EXPECT_FATAL(Plugin::Unload(nullptr), "plugin", source);
}

TEST_F(PluginTest, endsTheProcessWhenAPluginIsToBeUnloadedThatWasNotLoaded)
{
    EXPECT_FATAL(
        {
            auto* const plugin = new Inner(_record);
            plugin->ref();
            Plugin::Unload(plugin);
        },
        "handle", source);
    EXPECT_FATAL(
        {
            auto* const plugin = new Inner(_record);
            plugin->ref();
            plugin->ref();  // which is looked at later than the handle
            Plugin::Unload(plugin);
        },
        "handle", source);
}

TEST_F(PluginTest, endsTheProcessAtAnEmptyPath)
{
    EXPECT_FATAL(Plugin::PlatformLoad(""), "!path.empty()", platformSource);
    EXPECT_FATAL(Plugin::Load(""), "!path.empty()", platformSource);
}

TEST_F(PluginTest, endsTheProcessAtANullHandle)
{
    EXPECT_FATAL(Plugin::PlatformUnload(nullptr), "handle", platformSource);
    EXPECT_FATAL(Plugin::FindSymbol(nullptr, entryName), "handle", platformSource);
}

}  // namespace
