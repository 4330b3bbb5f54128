// SPDX-License-Identifier: Apache-2.0
// What the example program `trend` reads, refuses, writes and draws.
#include "trend_program.hpp"

#include <map>

namespace
{

using namespace trend_program;

TEST_F(TrendTest, QuotesAndForeignLineEndsAreRead)
{
    std::string text = "\"date\",\"co2\"\r\n";
    for (int day = 1; day <= 9; ++day)
        text += "\"2000010" + std::to_string(day) + "\", 31" + std::to_string(day) + ".5 \r\n\r\n";
    const auto result = runQuietly(write(text), "--span 1");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const auto rows = parseTable(readFile(table()));
    ASSERT_EQ(rows.size(), 9U);
    EXPECT_EQ(rows[8].measured, 319.5);
}

TEST_F(TrendTest, PictureIsDrawn)
{
    const std::string name = "it's a picture.png";
    const auto result =
        run(quoted(realData) + " --reach 8 --out-csv other.csv --out-png \"" + name + "\"");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.err, "");
    const auto png = readFile(directory / name);
    EXPECT_EQ(png.substr(0, 8), "\x89PNG\r\n\x1a\n");
    EXPECT_EQ(png.substr(png.size() - 8, 4), "IEND");
    EXPECT_GT(png.size(), 10000U);
    EXPECT_TRUE(fs::exists(directory / "other.csv"));
    EXPECT_NE(result.out.find(name), std::string::npos);
    EXPECT_EQ(files(), (std::vector<std::string>{name, "other.csv"}));
}

// Neither locale nor temporary directory nor anything else of the shell matters.
TEST_F(TrendTest, PictureIsTheSameInAnyEnvironment)
{
    ASSERT_EQ(run(quoted(realData)).exitCode, 0);
    const auto png = readFile(picture());
    for (const auto *environment :
         {"env -i", "LC_ALL=C LANG=", "LC_ALL=POSIX TMPDIR=/nonexistent"}) {
        fs::remove(picture());
        const auto result = run(quoted(realData), environment);
        EXPECT_EQ(result.exitCode, 0) << environment << result.err;
        EXPECT_EQ(result.err, "") << environment;
        EXPECT_TRUE(readFile(picture()) == png) << environment;
    }
}

TEST_F(TrendTest, OutputThatCannotBeWritten)
{
    expectRefusal(runQuietly(realData, "--out-csv nowhere/trend.csv"),
                  {"cannot write 'nowhere/trend.csv", "No such file", "--out-csv"});
    expectRefusal(run(quoted(realData) + " --out-png nowhere/trend.png"),
                  {"cannot write 'nowhere/trend.png", "--out-png"});
    EXPECT_TRUE(files().empty());
    expectRefusal(runQuietly(realData, "--out-csv /dev/full"),
                  {"cannot write '/dev/full'", "No space left on device"});
}

TEST_F(TrendTest, OutputsThatWouldOverwriteOneAnother)
{
    const auto input = write(syntheticSeries(0, 0));
    fs::create_symlink("input.csv", directory / "link.csv");
    for (const auto *arguments :
         {"--no-picture --out-csv input.csv", "--no-picture --out-csv ./link.csv",
          "--out-png input.csv", "--out-csv same --out-png same",
          "--out-csv same --out-png ../$(basename \"$PWD\")/same"}) {
        SCOPED_TRACE(arguments);
        expectRefusal(run(quoted(input) + " " + arguments), {"is given twice"});
        EXPECT_EQ(readFile(input), syntheticSeries(0, 0));
        EXPECT_EQ(files(), (std::vector<std::string>{"input.csv", "link.csv"}));
    }
    EXPECT_EQ(run(quoted(input) + " --out-csv /dev/null --out-png /dev/null").exitCode, 0);
}

// A limit on the size of files stands in for a full disk; the picture is larger than the table.
// Whichever does not fit, both older files stay whole, and nothing else is left behind.
TEST_F(TrendTest, FullDiskLeavesTheOlderFiles)
{
    const auto input = write(syntheticSeries(0, 0));
    ASSERT_EQ(run(quoted(input)).exitCode, 0);
    const auto oldTable = readFile(table());
    const auto oldPicture = readFile(picture());
    const auto before = files();
    const auto blocks = [](const std::string &text) { return text.size() / 512; };
    ASSERT_GT(blocks(oldPicture), blocks(oldTable) + 8);
    for (const auto &[limit, victim] :
         {std::pair{blocks(oldTable) / 2, "trend.csv"},
          std::pair{(blocks(oldTable) + blocks(oldPicture)) / 2, "trend.png"}}) {
        const auto result = run(quoted(input) + " --span 0.9",
                                "ulimit -f " + std::to_string(limit) + "; trap '' XFSZ;");
        expectRefusal(result, {"cannot write", victim, "File too large"});
        EXPECT_TRUE(readFile(table()) == oldTable) << victim;
        EXPECT_TRUE(readFile(picture()) == oldPicture) << victim;
        EXPECT_EQ(files(), before) << victim;
    }
}

TEST_F(TrendTest, OlderFilesKeepModeAndLinks)
{
    const auto real = directory / "real.csv";
    std::ofstream(real) << "older";
    fs::permissions(real, fs::perms::owner_read | fs::perms::owner_write);
    fs::create_symlink("real.csv", table());
    ASSERT_EQ(runQuietly(realData).exitCode, 0);
    EXPECT_TRUE(fs::is_symlink(table()));
    EXPECT_EQ(parseTable(readFile(real)).size(), 2284U);
    EXPECT_EQ(fs::status(real).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(TrendTest, FullStandardOutput)
{
    expectFullOutputIsNoticed(quoted(realData) + " --no-picture");
    expectFullOutputIsNoticed("--help");
}

TEST_F(TrendTest, ByteOrderMarkIsRead)
{
    ASSERT_EQ(runQuietly(write("\xEF\xBB\xBF" + syntheticSeries(0, 0))).exitCode, 0);
    EXPECT_EQ(parseTable(readFile(table())).size(), 400U);
}

TEST_F(TrendTest, MissingFile)
{
    expectRefusal(runQuietly(directory / "none.csv"),
                  {"cannot open", "none.csv", "No such file", "header 'date,co2'"});
    expectRefusal(runQuietly(directory), {"regular file"});
}

TEST_F(TrendTest, MalformedLinesAreNamed)
{
    const std::string good = "date,co2\n20000101,1\n20000108,\n";
    const std::map<std::string, std::vector<std::string>> cases{
        {"day,value\n", {"line 1:", "header must be 'date,co2'"}},
        {"20000101,1\n", {"line 1:", "header"}},
        {good + "20000115\n", {"line 4:", "1 field instead"}},
        {good + "20000115,1,2\n", {"line 4:", "3 fields instead"}},
        {good + "\n\n20000115;1\n", {"line 6:", "1 field instead"}},
        {good + "20000230,1\n", {"line 4:", "'20000230' is not a date", "YYYYMMDD"}},
        {good + "20001301,1\n", {"line 4:", "'20001301' is not a date"}},
        {good + "2000-01-15,1\n", {"line 4:", "'2000-01-15' is not a date"}},
        {good + "200001150,1\n", {"line 4:", "is not a date"}},
        {good + "-2000115,1\n", {"line 4:", "is not a date"}},
        {good + ",1\n", {"line 4:", "'' is not a date"}},
        {good + "20000115,abc\n", {"line 4:", "'abc' is not a number"}},
        {good + "20000115,1.5x\n", {"line 4:", "'1.5x' is not a number"}},
        {good + "20000115,nan\n", {"line 4:", "'nan' is not a number"}},
        {good + "20000115,inf\n", {"line 4:", "'inf' is not a number"}},
        {good + "20000115,1e999\n", {"line 4:", "'1e999' is not a number"}},
        {good + "20000115,1e308\n", {"line 4:", "'1e308' is too large"}},
        {good + "20000115,-1.1e100\n", {"line 4:", "'-1.1e100' is too large"}},
        {good + "20000108,1\n", {"line 4:", "20000108 does not come after 20000108"}},
        {good + "19991231,1\n", {"line 4:", "19991231 does not come after 20000108", "sort"}},
        {good + "20000115,1\"2\n", {"line 4:", "quotation mark"}},
        {good + "20000115,\"1\n\n20000122,2\n", {"line 4:", "never ends"}},
    };
    for (const auto &[text, words] : cases) {
        SCOPED_TRACE(text);
        expectRefusal(runQuietly(write(text)), words);
        EXPECT_EQ(files(), std::vector<std::string>{"input.csv"});
    }
}

TEST_F(TrendTest, EmptySeries)
{
    expectRefusal(runQuietly(write("")), {"holds no weeks"});
    expectRefusal(runQuietly(write("date,co2\n")), {"holds no weeks"});
    expectRefusal(runQuietly(write("date,co2\n20000101,\n20000108,\n")), {"holds no measurement"});
    expectRefusal(runQuietly(write("date,co2\n20000101,1\n20000108,2\n")),
                  {"only 2 measured weeks", "at least 5"});
}

TEST_F(TrendTest, SillySpan)
{
    for (const auto *span : {"0", "-0.1", "1.01", "nan", "inf", "-inf"}) {
        SCOPED_TRACE(span);
        expectRefusal(runQuietly(realData, std::string("--span=") + span),
                      {"the span must be above 0 and at most 1"});
    }
    expectRefusal(runQuietly(realData, "--span 0.001"),
                  {"takes in 2 of the 2225", "at least 5", "--span of 0.0023 or more"});
    expectRefusal(runQuietly(realData, "--span wide"), {"--span"});
}

TEST_F(TrendTest, SillyArguments)
{
    for (const auto *reach : {"0", "-3", "2.5", "far"}) {
        SCOPED_TRACE(reach);
        expectRefusal(runQuietly(realData, std::string("--reach=") + reach), {"--reach"});
    }
    expectRefusal(run(""), {"input is required"});
    expectRefusal(runQuietly(realData, "--colour red"), {"--colour"});
}

TEST_F(TrendTest, HelpTellsTheLimit)
{
    const auto result = run("--help");
    EXPECT_EQ(result.exitCode, 0);
    for (const auto *word : {"--span", "--reach", "--out-csv", "--out-png", "--no-picture",
                             "4.450147717014403e-308", "absolute"})
        EXPECT_NE(result.out.find(word), std::string::npos) << word;
}

} // namespace
