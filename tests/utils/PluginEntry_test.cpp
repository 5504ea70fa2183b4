// The entry function of a plug-in, here in a program.
#include <kxPAL/PluginEntry.h>

#include "Runtime.h"

namespace {

class Named : public Murn::Plugin {
public:
    const char* name() const override { return "named"; }
    bool start() override { return true; }
    void stop() override {}
};

class PluginEntryTest : public RuntimeTest {};

}  // namespace

MURN_PLUGIN(Named)

TEST_F(PluginEntryTest, makesAPluginOfTheClassThatTheMacroNames)
{
    Murn::Plugin* const plugin = __Ormet_PAL_PluginLoad();
    Murn::Plugin* const another = __Ormet_PAL_PluginLoad();
    ASSERT_TRUE(plugin != nullptr && another != nullptr);
    EXPECT_NE(plugin, another);
    EXPECT_STREQ(plugin->name(), "named");
    EXPECT_EQ(plugin->pluginFile(), "");
    plugin->destroy();
    another->destroy();
    EXPECT_THAT(logged(), ::testing::SizeIs(2)) << "the farewells";
}
