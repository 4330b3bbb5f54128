// SPDX-License-Identifier: Apache-2.0
// An example program run from the outside, in a directory of its own: what it prints and writes.
#pragma once

#include <gtest/gtest.h>

#include <stdlib.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace example
{

namespace fs = std::filesystem;

struct Result {
    int exitCode = -1;
    std::string out;
    std::string err;
};

inline std::string quoted(const fs::path &path) // for a path without a quote in it
{
    return "'" + path.string() + "'";
}

inline std::string readFile(const fs::path &path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

inline std::size_t occurrences(const std::string &text, const std::string &word)
{
    std::size_t count = 0;
    for (auto at = text.find(word); at != std::string::npos; at = text.find(word, at + 1))
        ++count;
    return count;
}

class ExampleTest : public testing::Test
{
  protected:
    explicit ExampleTest(fs::path path) : program(std::move(path)) {}

    void SetUp() override
    {
        std::string name = (fs::temp_directory_path() / "example-test-XXXXXX").string();
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        directory = name;
    }
    void TearDown() override
    {
        std::error_code ignored;
        fs::remove_all(directory, ignored);
    }

    fs::path write(const std::string &text, const std::string &name = "input.csv") const
    {
        std::ofstream(directory / name, std::ios::binary) << text;
        return directory / name;
    }

    // `before` stands in front of the program's name in the shell: variables, env, limits.
    Result run(const std::string &arguments, const std::string &before = "") const
    {
        const auto out = directory / "out";
        const auto err = directory / "err";
        std::string command = "cd " + quoted(directory);
        command += " && " + before + " " + quoted(program) + " " + arguments;
        command += " >" + quoted(out) + " 2>" + quoted(err);
        const int status = std::system(command.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, readFile(out), readFile(err)};
    }

    // The names in the directory, but for the two that run() makes.
    std::vector<std::string> files() const
    {
        std::vector<std::string> names;
        for (const auto &entry : fs::directory_iterator(directory))
            if (const auto name = entry.path().filename().string(); name != "out" && name != "err")
                names.push_back(name);
        std::sort(names.begin(), names.end());
        return names;
    }

    void expectRefusal(const Result &result, const std::vector<std::string> &words) const
    {
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_EQ(result.out, "");
        for (const auto &word : words)
            EXPECT_NE(result.err.find(word), std::string::npos)
                << "no '" << word << "' in: " << result.err;
    }

    // What was printed may not arrive.
    void expectFullOutputIsNoticed(const std::string &arguments) const
    {
        const auto command = "cd " + quoted(directory) + " && " + quoted(program) + " " +
                             arguments + " >/dev/full 2>err";
        const int status = std::system(command.c_str());
        EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, 1);
        EXPECT_NE(readFile(directory / "err").find("cannot write to the standard output"),
                  std::string::npos);
    }

    fs::path program;
    fs::path directory;
};

} // namespace example
