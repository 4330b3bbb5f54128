// SPDX-License-Identifier: Apache-2.0
#include "superposition.hpp"

#include <zonm.h>

#include <cmath>
#include <stdexcept>

namespace superpose
{
namespace
{

using KeyMatrix = std::array<std::array<double, 4>, 4>;
constexpr int element = sizeof(double), row = sizeof(std::array<double, 4>),
              matrix = sizeof(KeyMatrix);

Shape centred(Shape shape)
{
    for (std::size_t axis = 0; axis < 3; ++axis) {
        double sum = 0;
        for (const Point &p : shape)
            sum += p[axis];
        for (Point &p : shape)
            p[axis] -= sum / static_cast<double>(shape.size());
    }
    return shape;
}

double squareOf(const Shape &shape)
{
    double sum = 0;
    for (const Point &p : shape)
        sum += p[0] * p[0] + p[1] * p[1] + p[2] * p[2];
    return sum;
}

double distanceOf(const Shape &a, const Shape &b)
{
    double sum = 0;
    for (std::size_t i = 0; i < a.size(); ++i)
        for (std::size_t axis = 0; axis < 3; ++axis)
            sum += std::pow(a[i][axis] - b[i][axis], 2);
    return std::sqrt(sum / static_cast<double>(a.size()));
}

// Horn's matrix N for turning `shape` onto `reference`, as N / scale + 2 I.
//
// The library reports a matrix as singular if the product of its eigenvalues is near zero, and a
// key matrix may well have such a product. No eigenvalue of N is larger in magnitude than the
// geometric mean of the two sums of squares. With that as the scale those of N / scale + 2 I lie
// between 1 and 3, so far from zero that the decision never bites. The eigenvectors are those of N.
KeyMatrix keyMatrix(const Shape &shape, const Shape &reference)
{
    // Points that coincide have no scale: 0/0 makes a matrix that the library refuses.
    const double scale = std::sqrt(squareOf(shape) * squareOf(reference));
    double s[3][3] = {};
    for (std::size_t i = 0; i < shape.size(); ++i)
        for (std::size_t a = 0; a < 3; ++a)
            for (std::size_t b = 0; b < 3; ++b)
                s[a][b] += shape[i][a] * reference[i][b];
    const double xx = s[0][0], yy = s[1][1], zz = s[2][2];
    KeyMatrix n = {{{xx + yy + zz, s[1][2] - s[2][1], s[2][0] - s[0][2], s[0][1] - s[1][0]},
                    {0, xx - yy - zz, s[0][1] + s[1][0], s[2][0] + s[0][2]},
                    {0, 0, yy - xx - zz, s[1][2] + s[2][1]},
                    {0, 0, 0, zz - xx - yy}}};
    for (std::size_t i = 0; i < 4; ++i)
        for (std::size_t j = i; j < 4; ++j)
            n[i][j] = n[j][i] = n[i][j] / scale + (i == j ? 2 : 0);
    return n;
}

// By the unit quaternion in column 0.
Shape rotated(const Shape &shape, const KeyMatrix &q)
{
    const double w = q[0][0], x = q[1][0], y = q[2][0], z = q[3][0];
    const double r[3][3] = {
        {w * w + x * x - y * y - z * z, 2 * (x * y - w * z), 2 * (x * z + w * y)},
        {2 * (x * y + w * z), w * w - x * x + y * y - z * z, 2 * (y * z - w * x)},
        {2 * (x * z - w * y), 2 * (y * z + w * x), w * w - x * x - y * y + z * z}};
    Shape result(shape.size());
    for (std::size_t i = 0; i < shape.size(); ++i)
        for (std::size_t a = 0; a < 3; ++a)
            result[i][a] = r[a][0] * shape[i][0] + r[a][1] * shape[i][1] + r[a][2] * shape[i][2];
    return result;
}

// Values and vectors of all matrices in one call. An array ends at the first matrix that fails and
// does not say which that is: then the matrices go one by one, and each answers for itself.
std::vector<bool> solve(const std::vector<KeyMatrix> &keys, std::vector<KeyMatrix> &vectors)
{
    std::vector<std::array<double, 4>> values(keys.size());
    KeyMatrix buffer;
    vectors.resize(keys.size());
    const auto call = [&](std::size_t first, std::size_t count) {
        return zonmEigenValuesVectorsSym_ma_64f(&keys[first][0][0], matrix, row, element, &buffer,
                                                &vectors[first][0][0], matrix, row, element,
                                                &values[first][0], 4, static_cast<int>(count));
    };
    std::vector<bool> holds(keys.size(), true);
    const ZonStatus status = call(0, keys.size());
    if (status == zonStsOk)
        return holds;
    if (status != zonStsSingular && status != zonStsNoConvergence)
        throw std::logic_error("the eigenproblem was refused with status " +
                               std::to_string(status));
    for (std::size_t k = 0; k < keys.size(); ++k)
        holds[k] = call(k, 1) == zonStsOk;
    return holds;
}

// Of all models that were fitted.
Shape meanOf(const Superposition &superposition, double &number)
{
    Shape mean(superposition.reference.size());
    number = 0;
    for (const auto &fit : superposition.fits) {
        if (!fit)
            continue;
        ++number;
        for (std::size_t i = 0; i < mean.size(); ++i)
            for (std::size_t axis = 0; axis < 3; ++axis)
                mean[i][axis] += fit->atoms[i][axis];
    }
    if (number == 0)
        throw std::runtime_error("no model could be superposed");
    for (Point &p : mean)
        for (double &coordinate : p)
            coordinate /= number;
    return mean;
}

} // namespace

Superposition superposeOn(const Shape &reference, const std::vector<Model> &models)
{
    Superposition result{centred(reference), {}};
    std::vector<Shape> shapes;
    std::vector<KeyMatrix> keys, vectors;
    for (const Model &model : models) {
        shapes.push_back(centred(model.atoms));
        keys.push_back(keyMatrix(shapes.back(), result.reference));
    }
    const std::vector<bool> holds = solve(keys, vectors);
    for (std::size_t k = 0; k < models.size(); ++k) {
        if (!holds[k]) {
            result.fits.emplace_back();
            continue;
        }
        Shape atoms = rotated(shapes[k], vectors[k]);
        const double rmsd = distanceOf(atoms, result.reference);
        result.fits.push_back(Fit{rmsd, std::move(atoms)});
    }
    return result;
}

Superposition superposeOnMean(const std::vector<Model> &models, int &rounds)
{
    constexpr double settled = 1e-7; // ångström
    constexpr int mostRounds = 100;
    Superposition result = superposeOn(models.front().atoms, models);
    for (rounds = 1; rounds <= mostRounds; ++rounds) {
        double number;
        const Shape mean = meanOf(result, number);
        const double change = distanceOf(mean, result.reference);
        result = superposeOn(mean, models);
        if (change < settled)
            return result;
    }
    throw std::runtime_error("the mean structure does not settle");
}

std::vector<double> fluctuationsOf(const Superposition &superposition)
{
    double number;
    const Shape mean = meanOf(superposition, number);
    std::vector<double> result(mean.size());
    for (const auto &fit : superposition.fits)
        for (std::size_t i = 0; fit && i < mean.size(); ++i)
            for (std::size_t axis = 0; axis < 3; ++axis)
                result[i] += std::pow(fit->atoms[i][axis] - mean[i][axis], 2);
    for (double &value : result)
        value = std::sqrt(value / number);
    return result;
}

} // namespace superpose
