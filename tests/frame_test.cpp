// SPDX-License-Identifier: Apache-2.0
// What the library is as a whole: its version, its statuses, and what its files contain and need.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <set>
#include <sstream>
#include <type_traits>

#include "support/manifest.hpp"
#include "zonm.h"

extern "C" {
std::size_t recordSizeInC(void);
std::int32_t majorVersionInC(void);
ZonStatus addInC(const float *, const float *, float *);
}

namespace
{

#if defined(__SANITIZE_ADDRESS__)
constexpr bool sanitized = true;
#elif defined(__has_feature)
constexpr bool sanitized = __has_feature(address_sanitizer);
#else
constexpr bool sanitized = false;
#endif

TEST(Version, IsTheStatedRecord)
{
    const ZonVersionRecord *v = zonmGetLibVersion();
    ASSERT_NE(v, nullptr);
    EXPECT_EQ(v->major, 8);
    EXPECT_EQ(v->minor, 1);
    EXPECT_EQ(v->patch, 0);
    EXPECT_EQ(v->revision, 41664);
    EXPECT_EQ(std::memcmp(v->targetTag, "px\0\0", sizeof v->targetTag), 0);
    EXPECT_STREQ(v->versionName, "zonm PX (px)");
    EXPECT_STREQ(v->versionText, "8.1.0 (r41664)");
    EXPECT_STREQ(v->buildDate, "Jan 15 2014");

    std::ostringstream text;
    text << v->major << '.' << v->minor << '.' << v->patch << " (r" << v->revision << ')';
    EXPECT_EQ(text.str(), v->versionText);
}

TEST(Version, IsOneRecord)
{
    const ZonVersionRecord *v = zonmGetLibVersion();
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(zonmGetLibVersion(), v);
}

TEST(Version, HasTheStatedLayout)
{
    static_assert(std::is_standard_layout_v<ZonVersionRecord>);
    EXPECT_EQ(offsetof(ZonVersionRecord, major), 0u);
    EXPECT_EQ(offsetof(ZonVersionRecord, minor), 4u);
    EXPECT_EQ(offsetof(ZonVersionRecord, patch), 8u);
    EXPECT_EQ(offsetof(ZonVersionRecord, revision), 12u);
    EXPECT_EQ(offsetof(ZonVersionRecord, targetTag), 16u);
    const std::size_t texts = (20 + alignof(char *) - 1) / alignof(char *) * alignof(char *);
    EXPECT_EQ(offsetof(ZonVersionRecord, versionName), texts);
    EXPECT_EQ(offsetof(ZonVersionRecord, versionText), texts + sizeof(char *));
    EXPECT_EQ(offsetof(ZonVersionRecord, buildDate), texts + 2 * sizeof(char *));
    EXPECT_EQ(sizeof(ZonVersionRecord), texts + 3 * sizeof(char *));
}

TEST(Header, IsTheSameInC)
{
    EXPECT_EQ(recordSizeInC(), sizeof(ZonVersionRecord));
    EXPECT_EQ(majorVersionInC(), 8);
    const float a = 1, b = 2;
    float sum = 0;
    EXPECT_EQ(addInC(&a, &b, &sum), zonStsOk);
    EXPECT_EQ(sum, 3);
}

TEST(Status, HasTheStatedValues)
{
    static_assert(std::is_same_v<ZonStatus, std::int32_t>);
    EXPECT_EQ(zonStsOk, 0);
    EXPECT_EQ(zonStsBlockSingular, -2);
    EXPECT_EQ(zonStsBadSize, -6);
    EXPECT_EQ(zonStsNullPointer, -8);
    EXPECT_EQ(zonStsDivByZero, -10);
    EXPECT_EQ(zonStsNotPositiveDefinite, -179);
    EXPECT_EQ(zonStsBadStride, -182);
    EXPECT_EQ(zonStsSingular, -195);
    EXPECT_EQ(zonStsBadShift, -202);
    EXPECT_EQ(zonStsBadCount, -203);
    EXPECT_EQ(zonStsShapeMismatch, -204);
    EXPECT_EQ(zonStsNoConvergence, -205);
}

#if !defined(_WIN32) // dll_test.py looks into a DLL

// The lines that a command prints.
std::vector<std::string> linesOf(const std::string &command)
{
    FILE *pipe = popen(command.c_str(), "r");
    std::string text;
    for (char buffer[4096]; pipe && std::fgets(buffer, sizeof buffer, pipe);)
        text += buffer;
    EXPECT_TRUE(pipe && pclose(pipe) == 0) << command;
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    EXPECT_FALSE(lines.empty()) << command;
    return lines;
}

// The last word of each line, without a symbol version.
std::set<std::string> symbolsOf(const std::string &options)
{
    std::set<std::string> symbols;
    for (const std::string &line : linesOf(ZONM_NM " -D " + options + " '" ZONM_LIBRARY "'")) {
        const std::string last = line.substr(line.rfind(' ') + 1);
        symbols.insert(last.substr(0, last.find('@')));
    }
    return symbols;
}

TEST(LibraryFile, DefinesTheExportsAndNothingElse)
{
    std::set<std::string> expected = {"ZONM_8"}; // the version node
    for (const test::Export &e : test::allExports())
        expected.insert(e.name);
    EXPECT_EQ(symbolsOf("--defined-only"), expected);
}

TEST(LibraryFile, NeedsNothingButTheCLibrary)
{
    if (sanitized)
        GTEST_SKIP() << "the sanitizers add symbols of their own";
    static const std::set<std::string> allowed = {
        "memcpy",
        "memmove",
        "memset",
        "memcmp",
        "sin",
        "cos",
        "sincos",
        "sqrt",
        // Asked for if the process has it.
        "zonGetEnabledCpuFeatures",
        // Every shared object of this platform asks for these.
        "__cxa_finalize",
        "__gmon_start__",
        "_ITM_deregisterTMCloneTable",
        "_ITM_registerTMCloneTable",
#if defined(__arm__)
        "raise", // by the divisions of 64-bit integers
#endif
    };
    for (const std::string &symbol : symbolsOf("--undefined-only"))
        EXPECT_TRUE(allowed.contains(symbol)) << symbol;
    for (const std::string &line : linesOf(ZONM_READELF " -d '" ZONM_LIBRARY "'")) {
        if (line.find("(NEEDED)") == std::string::npos)
            continue;
        EXPECT_TRUE(line.find("[libc.so.6]") != std::string::npos ||
                    line.find("[libm.so.6]") != std::string::npos)
            << line;
    }
}

TEST(LibraryFile, IsNamedByItsMajorVersion)
{
    const auto lines = linesOf(ZONM_READELF " -d '" ZONM_LIBRARY "'");
    EXPECT_EQ(std::ranges::count_if(lines,
                                    [](const std::string &line) {
                                        return line.find("(SONAME)") != std::string::npos &&
                                               line.find("[libzonm.so.8]") != std::string::npos;
                                    }),
              1);
}

// The one byte that the library writes of its own is what it records when it is loaded; s390x
// rounds its section up.
TEST(LibraryFile, HasNoWritableDataButOneByte)
{
    if (sanitized)
        GTEST_SKIP() << "the sanitizers add data of their own";
    static const std::set<std::string> writable = {".data", ".bss", ".tdata", ".tbss", "COMMON"};
    std::string object;
    int objects = 0, bytesOfAttach = 0;
    for (const std::string &line : linesOf(ZONM_SIZE " -A -d '" ZONM_STATIC_LIBRARY "'")) {
        std::istringstream words(line);
        std::string section;
        int bytes = 0;
        words >> section;
        if (line.find("(ex ") != std::string::npos || section.ends_with(":")) {
            object = section;
            ++objects;
        } else if (words >> bytes && bytes > 0 &&
                   (writable.contains(section.substr(0, section.find('.', 1))))) {
            // .data.rel.ro is constant once the library is loaded.
            if (section.starts_with(".data.rel.ro"))
                continue;
            if (object.find("attach") != std::string::npos)
                bytesOfAttach += bytes;
            else
                ADD_FAILURE() << object << ' ' << line;
        }
    }
    EXPECT_GE(objects, 4);
#if defined(__s390x__)
    constexpr int oneByte = 2;
#else
    constexpr int oneByte = 1;
#endif
    EXPECT_LE(bytesOfAttach, oneByte);
}

#endif

} // namespace
