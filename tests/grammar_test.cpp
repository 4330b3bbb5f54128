// SPDX-License-Identifier: Apache-2.0
// The manifest against a derivation of its own: names, arguments, check orders, counts, ordinals.
#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <iostream>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "support/grammar.hpp"
#include "support/manifest.hpp"
#include "support/posix.hpp"
#include "zonm.h"

using namespace test;

namespace
{

std::string show(const std::vector<Signature::Argument> &arguments)
{
    std::string text;
    for (const auto &a : arguments)
        text += "\n  " + a.type + " " + a.name;
    return text;
}

std::string show(const std::vector<Signature::Step> &steps)
{
    std::string text;
    for (const auto &step : steps) {
        text += "\n  " + step.name + ':';
        for (const auto &a : step.arguments)
            text += ' ' + a;
    }
    return text;
}

// Steps of one class: the arguments of a step stand in no particular order.
std::vector<Signature::Step> normalised(std::vector<Signature::Step> steps)
{
    for (auto &step : steps) {
        std::ranges::sort(step.arguments);
        // Which sizes the test of shapes compares is told apart by the calls themselves.
        if (step.name == "shapes")
            step.arguments.clear();
    }
    return steps;
}

TEST(Grammar, TheManifestHoldsExactlyTheNamesOfTheGrammar)
{
    std::set<std::string> derived = {"zonmGetLibVersion"}, stated;
    for (const Signature &s : signatures())
        EXPECT_TRUE(derived.insert(s.name).second) << s.name << " twice";
    for (const Export &e : allExports())
        EXPECT_TRUE(stated.insert(e.name).second) << e.name << " twice";
    for (const auto &name : derived)
        EXPECT_TRUE(stated.contains(name)) << name << " is missing";
    for (const auto &name : stated)
        EXPECT_TRUE(derived.contains(name)) << name << " is no export";
    EXPECT_EQ(stated.size(), 874u);
}

TEST(Grammar, OrdinalsFollowTheByteOrderOfTheNames)
{
    const auto &exports = allExports();
    for (std::size_t i = 0; i < exports.size(); ++i) {
        EXPECT_EQ(exports[i].ordinal, int(i) + 1) << exports[i].name;
        if (i > 0) {
            EXPECT_LT(exports[i - 1].name, exports[i].name);
        }
    }
}

TEST(Grammar, ArgumentsFollowFromTheName)
{
    for (const Signature &s : signatures()) {
        std::vector<Signature::Argument> stated;
        for (const ArgumentInfo &a : exportNamed(s.name).arguments)
            stated.push_back({a.type, a.name});
        EXPECT_EQ(stated, s.arguments)
            << s.name << "\nmanifest:" << show(stated) << "\ngrammar:" << show(s.arguments);
    }
    EXPECT_TRUE(exportNamed("zonmGetLibVersion").arguments.empty());
}

TEST(Grammar, ChecksFollowFromTheName)
{
    for (const Signature &s : signatures()) {
        std::vector<Signature::Step> stated;
        for (const Check &c : exportNamed(s.name).checks)
            stated.push_back({c.step, c.arguments});
        EXPECT_EQ(normalised(stated), normalised(s.steps))
            << s.name << "\nmanifest:" << show(stated) << "\ngrammar:" << show(s.steps);
    }
}

TEST(Grammar, EveryStatusOfACheckIsStated)
{
    const std::map<int, std::string> names = {
        {-8, "zonStsNullPointer"}, {-203, "zonStsBadCount"},      {-6, "zonStsBadSize"},
        {-182, "zonStsBadStride"}, {-204, "zonStsShapeMismatch"}, {-202, "zonStsBadShift"}};
    for (const Export &e : allExports()) {
        for (const Check &c : e.checks) {
            EXPECT_EQ(c.status, names.at(statusOf(c.step))) << e.name;
            EXPECT_TRUE(std::ranges::count(e.statuses, c.status)) << e.name;
        }
        EXPECT_EQ(e.returns == "ZonStatus", std::ranges::count(e.statuses, "zonStsOk") == 1)
            << e.name;
    }
}

TEST(Grammar, CountsPerFamily)
{
    struct Row {
        const char *pattern;
        int exports;
    };
    static const Row rows[] = {
        {"zonmGetLibVersion", 1},
        {"zonmAdd_[mt]a?[mt]a?_.*", 54},
        {"zonmSub_[mt]a?[mt]a?_.*", 88},
        {"zonmAdd_[vc]a?[vc]a?_.*", 38},
        {"zonmSub_[vc]a?[vc]a?_.*", 66},
        {"zonmCopy_.*", 36},
        {"zonmExtract_.*", 30},
        {"zonmLoadIdentity_.*", 6},
        {"zonmTranspose_ma?_.*", 10},
        {"zonmMul_[mt]a?[mt]a?_.*", 88},
        {"zonmMul_[mt]a?va?_.*", 44},
        {"zonmGaxpy_.*", 16},
        {"zonmMul_[mtv]a?ca?_.*", 42},
        {"zonmDotProduct_va?va?_.*", 16},
        {"zonmCrossProduct_va?va?_.*", 22},
        {"zonmL2Norm_.*", 10},
        {"zonmLComb_.*", 16},
        {"zonmSaxpy_.*", 22},
        {"zonmTrace_.*", 10},
        {"zonmFrobNorm_.*", 10},
        {"zonmLUDecomp_.*", 10},
        {"zonmLUBackSubst_.*", 16},
        {"zonmCholeskyDecomp_.*", 10},
        {"zonmCholeskyBackSubst_.*", 16},
        {"zonmQRDecomp_.*", 10},
        {"zonmQRBackSubst_.*", 16},
        {"zonmDet_ma?_.*", 10},
        {"zonmInvert_ma?_.*", 10},
        {"zonmEigenValuesSym_.*", 10},
        {"zonmEigenValuesVectorsSym_.*", 10},
        {"zonmEigenValues_.*", 10},
        {"zonmEigenValuesGetBufSize_.*", 2},
        {"zonmEigenValuesVectorsGetBufSize_.*", 2},
        {"zonmEigenValuesVectors_.*", 10},
        {"zonmEigenValuesVectorsLeft_.*", 10},
        {"zonmEigenValuesVectorsRight_.*", 10},
        {"zonm(Add|Sub|MulC|Min|Max|DotProduct|CrossProduct|Len|LenSqr|Normalize|BaryCentric|"
         "Hermite|"
         "InterpolationLinear|InterpolationCatmullRom)_v[234]_32f",
         14 * 3},
        {"zonm((Identity|IsIdentity|Transpose|Det|Invert|MulTranspose|Scaling|Translation|"
         "RotationX|"
         "RotationY|RotationZ|RotationYawPitchRoll)_m4|Mul_mm4x4|RotationAxis_v3m4)_32f",
         14},
        {"zonm(LookAt|Ortho|OrthoOffCenter|Perspective|PerspectiveOffCenter|PerspectiveFov)(LH|RH)_"
         "m4_32f",
         12},
        {"zonmAffineTransform_.*", 6},
        {"zonmAffineTransformCoord_.*", 4},
        {"zonmAffineTransformNormal_.*", 4},
        {"zonmProject_.*", 2},
        {"zonmUnproject_.*", 2},
        {"zonmAffineTransform3DH_.*", 1},
    };
    int total = 0;
    for (const Row &row : rows) {
        const std::regex pattern(row.pattern);
        const auto n = std::ranges::count_if(
            allExports(), [&](const Export &e) { return std::regex_match(e.name, pattern); });
        EXPECT_EQ(n, row.exports) << row.pattern;
        total += row.exports;
    }
    EXPECT_EQ(total, 874);
}

// The header, read as text: comments and directives away, one statement up to each semicolon.
std::map<std::string, std::pair<std::string, std::vector<Signature::Argument>>> prototypes()
{
    std::ifstream file(ZONM_SOURCE_DIR "/include/zonm.h");
    std::string text(std::istreambuf_iterator<char>(file), {});
    text = std::regex_replace(text, std::regex("/\\*[^*]*\\*+([^/*][^*]*\\*+)*/"), "");
    const std::regex prototype(
        "ZONM_API\\s+([A-Za-z ]+[ *])(zonm\\w+)\\(([^)]*)\\) ZONM_NOEXCEPT;");
    const std::regex parameter("\\s*(.*[ *])(\\w+)\\s*");
    std::map<std::string, std::pair<std::string, std::vector<Signature::Argument>>> found;
    for (std::sregex_iterator it(text.begin(), text.end(), prototype), end; it != end; ++it) {
        auto &[returns, arguments] = found[(*it)[2]];
        EXPECT_TRUE(returns.empty()) << (*it)[2] << " twice";
        returns = (*it)[1];
        std::istringstream list((*it)[3]);
        for (std::string one; std::getline(list, one, ',');) {
            std::smatch m;
            if (one == "void" || !std::regex_match(one, m, parameter))
                continue;
            std::string type = m[1];
            if (type.back() == ' ')
                type.pop_back();
            arguments.push_back({type, m[2]});
        }
    }
    return found;
}

TEST(Grammar, TheHeaderDeclaresWhatTheManifestStates)
{
    const auto found = prototypes();
    EXPECT_EQ(found.size(), 874u);
    for (const Export &e : allExports()) {
        const auto it = found.find(e.name);
        if (it == found.end()) {
            ADD_FAILURE() << "not declared: " << e.name;
            continue;
        }
        const auto &[returns, arguments] = it->second;
        EXPECT_EQ(returns, e.returns == "ZonStatus" ? "ZonStatus " : e.returns + " *") << e.name;
        std::vector<Signature::Argument> stated;
        for (const ArgumentInfo &a : e.arguments)
            stated.push_back({a.type, a.name});
        EXPECT_EQ(arguments, stated)
            << e.name << "\nheader:" << show(arguments) << "\nmanifest:" << show(stated);
    }
}

TEST(Grammar, TheLoaderSeesAllExports)
{
    void *library = dlopen(ZONM_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    ASSERT_EQ(allExports().size(), 874u);
    for (const Export &e : allExports())
        EXPECT_NE(dlsym(library, e.name.c_str()), nullptr) << e.name;
    dlclose(library);
}

} // namespace
