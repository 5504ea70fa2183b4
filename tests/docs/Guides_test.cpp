// The guides against the programs that they print from, and against the library that they describe.
//
// A block of C++ or C in a guide shows a region of a program in docs/snippets. The line above the block names both:
//
//     <!-- snippet: worker_thread.cpp, main -->
//     ```cpp
//
// and the region stands in the program between the lines "// [main]" and "// [end]", in C as "/* [main] */".
#include <glib.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

using Lines = std::vector<std::string>;

const fs::path root(KXPAL_SOURCE_DIR);
const fs::path docs = root / "docs";
const fs::path snippets = docs / "snippets";
const std::set<std::string> programs = {".c", ".cpp"};

std::string readFile(const fs::path& path)
{
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

Lines linesOf(const std::string& text)
{
    Lines lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

std::vector<fs::path> filesIn(const fs::path& folder, const std::set<std::string>& extensions)
{
    std::vector<fs::path> files;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
        if (entry.is_regular_file() && extensions.count(entry.path().extension().string()) != 0)
            files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

// All matches of a Perl-like pattern, each with its groups. GLib's, because the compiler takes the standard library's
// expressions for uninitialised under the sanitizers.
std::vector<Lines> matchesIn(const std::string& text, const char* pattern)
{
    std::vector<Lines> matches;
    GRegex* const regex = g_regex_new(pattern, G_REGEX_RAW, static_cast<GRegexMatchFlags>(0), nullptr);
    GMatchInfo* info = nullptr;
    g_regex_match_full(regex, text.data(), static_cast<gssize>(text.size()), 0, static_cast<GRegexMatchFlags>(0), &info,
                       nullptr);
    for (; g_match_info_matches(info) == TRUE; g_match_info_next(info, nullptr)) {
        Lines groups;
        for (int group = 0; group < g_match_info_get_match_count(info); ++group) {
            gchar* const found = g_match_info_fetch(info, group);
            groups.emplace_back(found);
            g_free(found);
        }
        matches.push_back(groups);
    }
    g_match_info_free(info);
    g_regex_unref(regex);
    return matches;
}

std::string replaced(std::string text, const std::string& what, const std::string& with)
{
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + with.size()))
        text.replace(at, what.size(), with);
    return text;
}

// Takes away the indentation that all lines share.
Lines dedented(Lines lines)
{
    std::size_t indent = std::string::npos;
    for (const std::string& line : lines)
        indent = std::min(indent, line.find_first_not_of(' '));
    for (std::string& line : lines)
        line.erase(0, std::min(indent, line.size()));
    return lines;
}

// The regions of all programs by "program, region".
std::map<std::string, Lines> allRegions()
{
    std::map<std::string, Lines> regions;
    for (const fs::path& path : filesIn(snippets, programs)) {
        std::string open;
        Lines body;
        for (const std::string& line : linesOf(readFile(path))) {
            const std::vector<Lines> marks = matchesIn(line, R"(^ *(?:// \[(.*)\]|/\* \[(.*)\] \*/)$)");
            if (marks.empty()) {
                body.push_back(line);
                continue;
            }
            const std::string name = marks.front().back();
            if (name == "end")
                regions[path.filename().string() + ", " + open] = dedented(body);
            open = name;
            body.clear();
        }
    }
    return regions;
}

struct Block {
    std::string where;   // file and line, for messages
    std::string region;  // what the line above it names; empty when it names nothing
    Lines body;
};

std::vector<Block> blocksOf(const fs::path& guide)
{
    static const std::string markBegin = "<!-- snippet: ";
    static const std::string markEnd = " -->";
    std::vector<Block> blocks;
    const Lines lines = linesOf(readFile(guide));
    for (std::size_t at = 0; at < lines.size(); ++at) {
        if (lines[at] != "```cpp" && lines[at] != "```c")
            continue;
        Block block;
        block.where = guide.filename().string() + ":" + std::to_string(at + 1);
        const std::string mark = at > 0 ? lines[at - 1] : std::string();
        if (mark.starts_with(markBegin) && mark.ends_with(markEnd))
            block.region = mark.substr(markBegin.size(), mark.size() - markBegin.size() - markEnd.size());
        for (++at; at < lines.size() && lines[at] != "```"; ++at)
            block.body.push_back(lines[at]);
        blocks.push_back(block);
    }
    return blocks;
}

std::vector<Block> allBlocks()
{
    std::vector<Block> blocks;
    for (const fs::path& guide : filesIn(docs, {".md"})) {
        const std::vector<Block> more = blocksOf(guide);
        blocks.insert(blocks.end(), more.begin(), more.end());
    }
    return blocks;
}

// The text of all guides as a reader sees it: a bar within a table cell is written with a backslash.
std::string allGuides()
{
    std::string text;
    for (const fs::path& guide : filesIn(docs, {".md"}))
        text += readFile(guide);
    return replaced(text, "\\|", "|");
}

std::string allSources()
{
    std::string text;
    for (const char* const folder : {"src", "inc"}) {
        for (const fs::path& source : filesIn(root / folder, {".cpp", ".h"}))
            text += readFile(source);
    }
    return text;
}

// What the first group of each match in the sources says.
std::set<std::string> inSources(const char* pattern)
{
    std::set<std::string> found;
    for (const Lines& match : matchesIn(allSources(), pattern))
        found.insert(match.at(1));
    return found;
}

// What the tables of the guides have in code type in their first columns.
std::set<std::string> quotedInTables()
{
    std::set<std::string> quoted;
    for (const std::string& line : linesOf(allGuides())) {
        if (!line.starts_with("| `"))
            continue;
        const std::size_t end = line.find("` | ");
        if (end != std::string::npos)
            quoted.insert(line.substr(3, end - 3));
    }
    return quoted;
}

// The anchors of a page's headings: small letters, digits and hyphens, with hyphens for blanks.
std::set<std::string> anchorsOf(const fs::path& page)
{
    std::set<std::string> anchors;
    for (const std::string& line : linesOf(readFile(page))) {
        if (!line.starts_with("#"))
            continue;
        std::string anchor;
        for (const char c : line.substr(line.find_first_not_of("# "))) {
            if (c == ' ')
                anchor += '-';
            else if (std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '-' || c == '_')
                anchor += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        }
        anchors.insert(anchor);
    }
    return anchors;
}

TEST(Guides, linkToFilesAndHeadingsThatExist)
{
    std::size_t links = 0;
    for (const fs::path& page : filesIn(docs, {".md"})) {
        for (const Lines& match : matchesIn(readFile(page), "\\]\\(([^)#]*)#?([^)]*)\\)")) {
            const std::string& target = match.at(1);
            const std::string& anchor = match.at(2);
            if (target.starts_with("https://"))
                continue;
            ++links;
            const fs::path file = target.empty() ? page : page.parent_path() / target;
            ASSERT_TRUE(fs::exists(file)) << page << " links to " << target;
            if (!anchor.empty()) {
                EXPECT_EQ(anchorsOf(file).count(anchor), 1U) << page << " links to " << match.at(0);
            }
        }
    }
    EXPECT_GT(links, 20U);
}

TEST(Guides, showEachBlockOfCodeAsItStandsInItsProgram)
{
    const std::map<std::string, Lines> regions = allRegions();
    const std::vector<Block> blocks = allBlocks();
    ASSERT_FALSE(blocks.empty());
    for (const Block& block : blocks) {
        const auto region = regions.find(block.region);
        ASSERT_NE(region, regions.end()) << block.where << " shows no region of a program: " << block.region;
        EXPECT_EQ(block.body, region->second) << block.where;
    }
}

TEST(Guides, showEveryRegionOfThePrograms)
{
    std::set<std::string> shown;
    for (const Block& block : allBlocks())
        shown.insert(block.region);
    for (const auto& region : allRegions())
        EXPECT_EQ(shown.count(region.first), 1U) << region.first;
}

TEST(Guides, haveAllTheirProgramsBuiltAndRun)
{
    std::set<std::string> built;
    std::istringstream names(KXPAL_SNIPPETS);
    for (std::string name; names >> name;)
        built.insert(name);
    std::set<std::string> present;
    for (const fs::path& path : filesIn(snippets, programs))
        present.insert(path.stem().string());
    EXPECT_EQ(built, present);
}

TEST(Guides, quoteEveryFatalCheckOfTheLibrary)
{
    const std::set<std::string> checks = inSources("MURN_CHECK\\((.*)\\);");
    ASSERT_GT(checks.size(), 20U);
    const std::set<std::string> quoted = quotedInTables();
    for (const std::string& check : checks)
        EXPECT_EQ(quoted.count(check), 1U) << check;
}

TEST(Guides, quoteEveryMessageThatTheLibraryLogs)
{
    const std::set<std::string> texts =
        inSources(R"re(Logger::(?:Critical|Error|Warning|Message|Info|Debug)\(\s*[^,()]+,\s*"((?:[^"\\]|\\.)*)")re");
    ASSERT_GT(texts.size(), 15U);
    const std::set<std::string> quoted = quotedInTables();
    for (const std::string& text : texts) {
        // In the sources a question mark may carry a backslash, against trigraphs, and quotes have to.
        const std::string read = replaced(replaced(text, "\\?", "?"), "\\\"", "\"");
        EXPECT_EQ(quoted.count(read), 1U) << read;
    }
}

}  // namespace
