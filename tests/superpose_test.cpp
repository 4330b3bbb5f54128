// SPDX-License-Identifier: Apache-2.0
// The example program `superpose`, run from the outside: distances beside a closed form, shapes
// whose superposition is known, models that it has to pass over, what it refuses and writes.
#include "support/example.hpp"

#include <array>
#include <cmath>
#include <map>

namespace
{

using namespace example;

using Point = std::array<double, 3>;
using Shape = std::vector<Point>;

const fs::path realData = ZONM_EXAMPLE_DATA;
const std::string head = "model,residue,name,x,y,z\n";

std::vector<std::vector<std::string>> parse(const std::string &text, const std::string &header)
{
    std::istringstream lines(text);
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(line, header);
    std::vector<std::vector<std::string>> rows;
    while (std::getline(lines, line)) {
        std::istringstream fields(line);
        rows.emplace_back();
        for (std::string field; std::getline(fields, field, ',');)
            rows.back().push_back(field);
    }
    return rows;
}

// Atoms on the axes at 1, 2 and 3, magnified, turned by quarters about z, moved.
std::string model(const std::string &name, double scale, int quarters, double shift)
{
    std::string text;
    for (int i = 0; i < 6; ++i) {
        Point p{};
        p[std::size_t(i / 2)] = (i % 2 ? -1 : 1) * (i / 2 + 1) * scale;
        for (int turn = 0; turn < quarters; ++turn)
            p = {-p[1], p[0], p[2]};
        text += name + ',' + std::to_string(10 + i) + ",GLY";
        for (const double x : p)
            text += ',' + std::to_string(x + shift);
        text += '\n';
    }
    return text;
}
const double size = std::sqrt(28. / 6); // the root mean square distance of that from its centre

class SuperposeTest : public ExampleTest
{
  protected:
    SuperposeTest() : ExampleTest(ZONM_SUPERPOSE_PROGRAM) {}

    std::map<std::string, double> distances() const
    {
        std::map<std::string, double> byModel;
        for (const auto &row : parse(readFile(directory / "superpose_models.csv"), "model,rmsd"))
            byModel[row.at(0)] = std::stod(row.at(1));
        return byModel;
    }
    std::vector<double> fluctuations() const
    {
        std::vector<double> all;
        for (const auto &row :
             parse(readFile(directory / "superpose_residues.csv"), "residue,name,fluctuation"))
            all.push_back(std::stod(row.at(2)));
        return all;
    }
    void expectLine(const Result &result, const std::string &line) const
    {
        EXPECT_EQ(occurrences('\n' + result.out, '\n' + line), 1U)
            << "no line '" << line << "' in:\n"
            << result.out;
    }
};

// The least distance after turning, from the singular values of the covariance: those of its
// normal matrix in closed form, the smallest with the determinant's sign.
double leastDistance(const Shape &a, const Shape &b)
{
    long double centre[2][3] = {}, s[3][3] = {}, squares = 0;
    for (std::size_t i = 0; i < a.size(); ++i)
        for (std::size_t x = 0; x < 3; ++x) {
            centre[0][x] += a[i][x] / (long double)(a.size());
            centre[1][x] += b[i][x] / (long double)(a.size());
        }
    for (std::size_t i = 0; i < a.size(); ++i)
        for (std::size_t x = 0; x < 3; ++x) {
            const long double p = a[i][x] - centre[0][x];
            squares += p * p + std::pow(b[i][x] - centre[1][x], 2.0L);
            for (std::size_t y = 0; y < 3; ++y)
                s[x][y] += p * (b[i][y] - centre[1][y]);
        }
    long double m[3][3] = {}, trace = 0, deviation = 0;
    for (int x = 0; x < 3; ++x)
        for (int y = 0; y < 3; ++y)
            for (int k = 0; k < 3; ++k)
                m[x][y] += s[k][x] * s[k][y];
    const auto determinant = [](const long double(&d)[3][3]) {
        return d[0][0] * (d[1][1] * d[2][2] - d[1][2] * d[2][1]) -
               d[0][1] * (d[1][0] * d[2][2] - d[1][2] * d[2][0]) +
               d[0][2] * (d[1][0] * d[2][1] - d[1][1] * d[2][0]);
    };
    for (int x = 0; x < 3; ++x)
        trace += m[x][x];
    const long double mean = trace / 3;
    for (int x = 0; x < 3; ++x) {
        m[x][x] -= mean;
        for (int y = 0; y < 3; ++y)
            deviation += m[x][y] * m[x][y];
    }
    const long double p = std::sqrt(deviation / 6);
    for (auto &row : m)
        for (long double &x : row)
            x /= p;
    const long double third = 2 * std::acos(-1.0L) / 3,
                      phi = std::acos(std::min(1.0L, std::max(-1.0L, determinant(m) / 2))) / 3;
    long double sum = 0;
    for (int i = 0; i < 3; ++i) { // the largest, the smallest, the one between
        const long double root =
            std::sqrt(std::max(0.0L, mean + 2 * p * std::cos(phi + i * third)));
        sum += i == 1 && determinant(s) < 0 ? -root : root;
    }
    return double(std::sqrt(std::max(0.0L, squares - 2 * sum) / (long double)(a.size())));
}

TEST_F(SuperposeTest, RealDataAgreesWithTheClosedForm)
{
    const auto result = run(quoted(realData));
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.err, "");
    expectLine(result, "models             116 of 76 residues");
    expectLine(result, "reference          model 1\n");
    expectLine(result, "mean RMSD          2.618 Å over 115 models");
    EXPECT_EQ(occurrences(result.out, " Å, model 71\n"), 1U) << result.out;
    EXPECT_EQ(occurrences(result.out, "passed over"), 0U);

    std::map<std::string, Shape> models;
    for (const auto &row : parse(readFile(realData), head.substr(0, head.size() - 1)))
        models[row.at(0)].push_back(
            {std::stod(row.at(3)), std::stod(row.at(4)), std::stod(row.at(5))});
    ASSERT_EQ(models.size(), 116U);
    const auto table = distances();
    ASSERT_EQ(table.size(), 116U);
    double sum = 0;
    for (const auto &[name, shape] : models) {
        EXPECT_NEAR(table.at(name), leastDistance(shape, models["1"]), 1e-7) << name;
        sum += table.at(name);
        if (name != "71") {
            EXPECT_LT(table.at(name), table.at("71")) << name;
        }
    }
    EXPECT_NEAR(sum / 115, 2.618, 0.0005);
    EXPECT_EQ(fluctuations().size(), 76U);
    EXPECT_EQ(files(), (std::vector<std::string>{"superpose.png", "superpose_models.csv",
                                                 "superpose_residues.csv"}));
    const auto png = readFile(directory / "superpose.png");
    EXPECT_EQ(png.substr(0, 8), "\x89PNG\r\n\x1a\n");
    EXPECT_GT(png.size(), 10000U);
}

TEST_F(SuperposeTest, RealDataSettlesOnItsMean)
{
    ASSERT_EQ(run(quoted(realData)).exitCode, 0);
    const auto onFirst = distances();
    const auto moved = fluctuations();
    const auto result = run(quoted(realData) + " --mean");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(occurrences(result.out, "reference          the mean, settled after "), 1U);
    EXPECT_EQ(occurrences(result.out, " over 116 models"), 1U);
    // The mean is nearer to all together than any one of them.
    double first = 0, mean = 0, motion = 0, motionOnMean = 0;
    for (const auto &[name, distance] : onFirst)
        first += distance * distance;
    const auto onMean = distances();
    for (const auto &[name, distance] : onMean)
        mean += distance * distance;
    for (const double x : moved)
        motion += x * x;
    for (const double x : fluctuations())
        motionOnMean += x * x;
    EXPECT_LT(mean, first);
    EXPECT_LT(motionOnMean, motion);
    // About the mean both tables add up to the same squares.
    EXPECT_NEAR(mean / double(onMean.size()) * double(moved.size()), motionOnMean,
                1e-6 * motionOnMean);
}

TEST_F(SuperposeTest, TurnedAndMovedShapesFitExactly)
{
    const auto input = write(head + model("one", 1, 0, 0) + model("turned", 1, 1, 7) +
                             model("half", 1, 2, -3) + model("magnified", 2.5, 3, 100));
    const auto result = run(quoted(input));
    ASSERT_EQ(result.exitCode, 0) << result.err;
    expectLine(result, "reference          model one\n");
    const auto table = distances();
    EXPECT_NEAR(table.at("one"), 0, 1e-12);
    EXPECT_NEAR(table.at("turned"), 0, 1e-12);
    EXPECT_NEAR(table.at("half"), 0, 1e-12);
    EXPECT_NEAR(table.at("magnified"), 1.5 * size, 1e-10);
    // Of the magnifications 1, 1, 1 and 2.5 the standard deviation, atom by atom.
    const auto moved = fluctuations();
    ASSERT_EQ(moved.size(), 6U);
    for (std::size_t i = 0; i < 6; ++i)
        EXPECT_NEAR(moved[i], std::sqrt(0.421875) * double(i / 2 + 1), 1e-10);
    EXPECT_EQ(occurrences(result.out, "residue 14 GLY"), 1U) << result.out;
}

TEST_F(SuperposeTest, AMirroredShapeIsTurnedAndNotMirrored)
{
    // Without symmetry: four atoms, three of them on the axes.
    const auto atoms = [](const char *name, int sign) {
        std::string text;
        const int xyz[4][3] = {{1, 0, 0}, {0, 2, 0}, {0, 0, 3}, {0, 0, 0}};
        for (int i = 0; i < 4; ++i) {
            text += std::string(name) + ',' + std::to_string(i) + ",ALA";
            for (const int x : xyz[i])
                text += ',' + std::to_string(sign * x);
            text += '\n';
        }
        return text;
    };
    const auto input = write(head + atoms("1", 1) + atoms("2", -1));
    ASSERT_EQ(run(quoted(input)).exitCode, 0);
    const Shape one = {{1, 0, 0}, {0, 2, 0}, {0, 0, 3}, {0, 0, 0}};
    Shape other = one;
    for (Point &p : other)
        p = {-p[0], -p[1], -p[2]};
    EXPECT_GT(distances().at("2"), 0.4);
    EXPECT_NEAR(distances().at("2"), leastDistance(other, one), 1e-9);
}

// Its key matrix has no scale; the others are solved all the same.
TEST_F(SuperposeTest, AModelWhoseAtomsCoincideIsPassedOverByName)
{
    const auto one = model("one", 1, 0, 0), turned = model("turned", 2, 1, 4);
    for (const std::string &text :
         {one + model("point", 0, 0, 5) + turned, one + turned + model("point", 0, 0, 5)}) {
        for (const char *option : {"", " --mean"}) {
            const auto result = run(quoted(write(head + text)) + option);
            ASSERT_EQ(result.exitCode, 0) << result.err;
            expectLine(result,
                       "passed over        model point: the library refused its key matrix\n");
            const auto table = distances();
            EXPECT_EQ(table.size(), 2U);
            EXPECT_EQ(table.count("point"), 0U);
            EXPECT_NEAR(table.at("turned"), *option ? size / 2 : size, 1e-9);
        }
    }
    expectRefusal(run(quoted(write(head + model("point", 0, 0, 5) + one))),
                  {"no model could be superposed"});
}

TEST_F(SuperposeTest, AModelOfOtherResiduesIsPassedOverByName)
{
    std::string other = model("other", 1, 0, 0), shorter = model("shorter", 1, 0, 0);
    other.replace(other.find("GLY"), 3, "ALA");
    shorter.erase(shorter.rfind("shorter"));
    const auto result =
        run(quoted(write(head + model("one", 1, 0, 0) + other + model("two", 3, 1, 0) + shorter)));
    ASSERT_EQ(result.exitCode, 0) << result.err;
    for (const char *name : {"other", "shorter"})
        expectLine(result, std::string("passed over        model ") + name +
                               ": its residues are not those of model one\n");
    EXPECT_EQ(distances().size(), 2U);
    EXPECT_NEAR(distances().at("two"), 2 * size, 1e-9);
}

// Key matrices with a product of eigenvalues at zero: atoms in one plane.
TEST_F(SuperposeTest, FlatShapesAreNoSingularMatrices)
{
    std::string text = head;
    for (int k = 0; k < 8; ++k)
        for (int i = 0; i < 4; ++i) {
            const double angle = 0.3 * k, x = i % 2 ? 1 : -1, y = i / 2 ? 1 : -1;
            text += std::to_string(k) + ',' + std::to_string(i) + ",C," +
                    std::to_string(x * std::cos(angle) - y * std::sin(angle)) + ',' +
                    std::to_string(x * std::sin(angle) + y * std::cos(angle)) + ",0\n";
        }
    const auto result = run(quoted(write(text)));
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(occurrences(result.out, "passed over"), 0U) << result.out;
    for (const auto &[name, distance] : distances())
        EXPECT_NEAR(distance, 0, 1e-6) << name;
}

TEST_F(SuperposeTest, MalformedInputIsNamed)
{
    const std::string good = head + model("one", 1, 0, 0);
    const std::map<std::string, std::vector<std::string>> cases{
        {"model,x,y,z\n", {"line 1:", "header must be 'model,residue,name,x,y,z'"}},
        {good + "two,1,GLY,1,2\n", {"line 8:", "5 fields instead"}},
        {good + "two,1.5,GLY,1,2,3\n", {"line 8:", "'1.5' is no residue number"}},
        {good + "two,1,GLY,1,2,three\n", {"line 8:", "'three' is no coordinate"}},
        {good + "two,1,GLY,1,inf,3\n", {"line 8:", "'inf' is no coordinate"}},
        {head, {"no models"}},
    };
    for (const auto &[text, words] : cases) {
        SCOPED_TRACE(text);
        expectRefusal(run(quoted(write(text))), words);
        EXPECT_EQ(files(), std::vector<std::string>{"input.csv"});
    }
    expectRefusal(run(quoted(directory / "none.csv")), {"cannot open", "none.csv"});
}

TEST_F(SuperposeTest, OutputsThatCannotBeWritten)
{
    const auto input = write(head + model("one", 1, 0, 0) + model("two", 2, 1, 0));
    for (const char *option : {"--out-models", "--out-residues", "--out-png"})
        expectRefusal(run(quoted(input) + ' ' + option + " nowhere/file"),
                      {"cannot write 'nowhere/file", "No such file", option});
    for (const char *arguments : {"--out-models input.csv", "--out-png same --out-residues same"})
        expectRefusal(run(quoted(input) + ' ' + arguments), {"is given twice"});
    EXPECT_EQ(files(), std::vector<std::string>{"input.csv"});
    expectFullOutputIsNoticed(quoted(input));
}

TEST_F(SuperposeTest, NamesOfTheOutputsAreTaken)
{
    const auto input = write(head + model("one", 1, 0, 0) + model("two", 2, 1, 0));
    ASSERT_EQ(run(quoted(input) + " --out-models a --out-residues b --out-png c").exitCode, 0);
    EXPECT_EQ(files(), (std::vector<std::string>{"a", "b", "c", "input.csv"}));
    EXPECT_NE(run("").exitCode, 0);
    EXPECT_EQ(run("--help").exitCode, 0);
}

} // namespace
