// The plug-in host, run as its users run it, on folders of all kinds.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "ChildProcess.h"
#include "TemporaryFolder.h"

namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

/// A folder with links to shared objects that were built for the tests.
class PluginHost : public ::testing::Test {
protected:
    void put(const std::string& builtName, const std::string& name) const
    {
        std::filesystem::create_symlink(std::string(KXPAL_TEST_PLUGINS) + "/" + builtName + ".so", _folder.path(name));
    }

    std::string loaded(const std::string& plugin, const std::string& file) const
    {
        return "loaded " + plugin + " from " + _folder.path(file) + "\n";
    }

    TemporaryFolder _folder;
};

TEST_F(PluginHost, runsThePluginsBesideItself)
{
    ChildProcess host(PLUGIN_HOST_PROGRAM, {});

    EXPECT_EQ(host.wait(), 0) << host.errors();
    EXPECT_THAT(host.errors(), IsEmpty());
    const std::string folder = std::filesystem::path(PLUGIN_HOST_PROGRAM).parent_path() / "plugins";
    EXPECT_THAT(host.output(), MatchesRegex("loaded greeter from " + folder + "/greeter\\.so\n" +
                                            "loaded ticker from " + folder + "/ticker\\.so\n" +
                                            "greeter: hello\n"
                                            "ticker: a tick every 20 ms\n"
                                            "ticker: [1-9][0-9]* ticks\n"
                                            "greeter: good-bye\n"
                                            "unloaded ticker\n"
                                            "unloaded greeter\n"));
}

TEST_F(PluginHost, takesSharedObjectsInTheOrderOfTheirNamesAndNothingElse)
{
    put("good", "b.so");
    put("shared_pointers", "a.so");
    _folder.makeFile("a.txt");
    _folder.makeFile(".so");
    _folder.makeDirectory("c.so");

    ChildProcess host(PLUGIN_HOST_PROGRAM, {_folder.path()});

    EXPECT_EQ(host.wait(), 0) << host.errors();
    EXPECT_EQ(host.output(),
              loaded("shared_pointers", "a.so") + loaded("good", "b.so") + "unloaded good\nunloaded shared_pointers\n");
}

TEST_F(PluginHost, skipsWhatIsBrokenAndSaysWhy)
{
    _folder.makeFile("a.so", "no shared object");
    put("without_entry", "b.so");
    put("null_entry", "c.so");
    put("shared_pointers", "d.so");

    ChildProcess host(PLUGIN_HOST_PROGRAM, {_folder.path()});

    EXPECT_EQ(host.wait(), 1);
    EXPECT_EQ(host.output(), loaded("shared_pointers", "d.so") + "unloaded shared_pointers\n");
    const std::string errors = host.errors();
    EXPECT_THAT(errors, StartsWith("skipped " + _folder.path("a.so") + ": Shared library \"" + _folder.path("a.so") +
                                   "\" failed to open with error: "));
    EXPECT_THAT(errors, HasSubstr("\nskipped " + _folder.path("b.so") + ": The shared object " + _folder.path("b.so") +
                                  " is not a valid PAL plugin !\n" +  //
                                  "skipped " + _folder.path("c.so") + ": The plugin \"" + _folder.path("c.so") +
                                  "\" is broken !\n"));
}

TEST_F(PluginHost, unloadsAtOnceWhatDoesNotStart)
{
    put("contrary", "a.so");

    ChildProcess host(PLUGIN_HOST_PROGRAM, {_folder.path()});

    EXPECT_EQ(host.wait(), 1);
    EXPECT_EQ(host.errors(), "contrary does not start\n");
    EXPECT_EQ(host.output(), loaded("contrary", "a.so") + "unloaded contrary\n");
}

TEST_F(PluginHost, takesARelativeFolderFromTheWorkingDirectory)
{
    put("shared_pointers", "a.so");
    std::filesystem::current_path(_folder.path());

    ChildProcess host(PLUGIN_HOST_PROGRAM, {"."});

    EXPECT_EQ(host.wait(), 0) << host.errors();
    EXPECT_THAT(host.output(), StartsWith("loaded shared_pointers from " + _folder.path()));
}

TEST_F(PluginHost, findsNothingInAnEmptyFolder)
{
    ChildProcess host(PLUGIN_HOST_PROGRAM, {_folder.path()});

    EXPECT_EQ(host.wait(), 0);
    EXPECT_THAT(host.errors(), IsEmpty());
    EXPECT_EQ(host.output(), "no plug-ins in " + _folder.path() + "\n");
}

TEST_F(PluginHost, tellsWhenThereIsNoSuchFolder)
{
    const std::string missing = _folder.path("missing");

    ChildProcess host(PLUGIN_HOST_PROGRAM, {missing});

    EXPECT_EQ(host.wait(), 2);
    EXPECT_THAT(host.output(), IsEmpty());
    EXPECT_EQ(host.errors(), "plugin_host: there is no folder " + missing + "\n");
}

TEST_F(PluginHost, refusesACommandLineThatItDoesNotKnow)
{
    ChildProcess host(PLUGIN_HOST_PROGRAM, {_folder.path(), "another"});

    EXPECT_EQ(host.wait(), 2);
    EXPECT_THAT(host.output(), IsEmpty());
}

}  // namespace
