// SPDX-License-Identifier: Apache-2.0
#include "picture.hpp"

#include <zonm.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>

namespace molecule
{
namespace
{

using Rgb = std::array<float, 3>;

constexpr int samples = 3; // per pixel, in each direction
constexpr Rgb background = {0.985f, 0.985f, 0.98f}, shadow = {0.11f, 0.12f, 0.20f};

// What a ray through each sample meets first.
struct Surface {
    int columns, rows;
    std::vector<float> distance; // along the camera's axis; infinite where there is nothing
    std::vector<std::int32_t> atom;

    Surface(int c, int r)
        : columns(c), rows(r), distance(index(0, r), std::numeric_limits<float>::infinity()),
          atom(index(0, r), -1)
    {
    }
    std::size_t index(int x, int y) const
    {
        return static_cast<std::size_t>(y) * static_cast<std::size_t>(columns) +
               static_cast<std::size_t>(x);
    }
};

// Where a ray from the camera enters a sphere, as a multiple of its direction; infinite if nowhere.
float entry(const Point &direction, const Point &centre, float radius)
{
    const float a = direction.x * direction.x + direction.y * direction.y + 1;
    const float b = direction.x * centre.x + direction.y * centre.y - centre.z;
    const float c =
        centre.x * centre.x + centre.y * centre.y + centre.z * centre.z - radius * radius;
    const float root = b * b - a * c;
    return root < 0 ? std::numeric_limits<float>::infinity() : (b - std::sqrt(root)) / a;
}

Surface meet(const std::vector<Atom> &atoms, const View &view, const std::vector<Point> &centres)
{
    Surface surface(view.width(), view.height());
    const auto places = view.onScreen(atoms);
    for (std::size_t k = 0; k < atoms.size(); ++k) {
        const float radius = atoms[k].element->radius;
        // Seen aslant a sphere covers a little more than a disc of its radius.
        const float reach = 1.2f * radius * view.pixelsPerLength(-centres[k].z - radius) + 1;
        const auto within = [](float place, int limit) {
            return static_cast<int>(std::clamp(place, 0.f, static_cast<float>(limit)));
        };
        const int left = within(places[k].x - reach, surface.columns);
        const int right = within(places[k].x + reach + 1, surface.columns);
        const int top = within(places[k].y - reach, surface.rows);
        const int bottom = within(places[k].y + reach + 1, surface.rows);
        for (int y = top; y < bottom; ++y)
            for (int x = left; x < right; ++x) {
                const Point ray =
                    view.ahead(static_cast<float>(x) + 0.5f, static_cast<float>(y) + 0.5f);
                const float distance = entry(ray, centres[k], radius);
                if (const auto s = surface.index(x, y); distance < surface.distance[s]) {
                    surface.distance[s] = distance;
                    surface.atom[s] = static_cast<std::int32_t>(k);
                }
            }
    }
    return surface;
}

// How much of the light from all around a sample misses, from 0 to 1: what stands nearer within a
// few angstrom on the screen takes it away.
float occlusion(const Surface &surface, const View &view, int x, int y)
{
    constexpr int directions = 16;
    constexpr float reach = 4.5f, depth = 3;
    const float here = surface.distance[surface.index(x, y)];
    const float pixels = reach * view.pixelsPerLength(here);
    // Another set of directions at each sample; the mean over a pixel's samples is smooth.
    const float begin = static_cast<float>((x * 5 + y * 3) % 9) / 9;
    float hidden = 0;
    for (int i = 0; i < directions; ++i) {
        const float step = static_cast<float>(i) + begin;
        const float angle = 2.399963f * step * 4, out = pixels * std::sqrt(step / directions);
        const int sx =
            std::clamp(x + static_cast<int>(out * std::cos(angle)), 0, surface.columns - 1);
        const int sy = std::clamp(y + static_cast<int>(out * std::sin(angle)), 0, surface.rows - 1);
        const float nearer = here - surface.distance[surface.index(sx, sy)];
        hidden += std::clamp((nearer - 0.15f) / depth, 0.f, 1.f);
    }
    return std::min(1.f, 1.7f * hidden / directions);
}

struct Lamp {
    Point direction; // towards it
    Lamp()
    {
        const Point from{-0.55f, 0.75f, 0.85f}; // over the left shoulder
        zonmNormalize_v3_32f(&from.x, &direction.x);
    }
};

Rgb shade(const Atom &atom, const Point &centre, const Point &ray, float distance, const Lamp &lamp,
          float hidden, float mist)
{
    Point place, normal, halfway, toCamera;
    float light, gloss;
    zonmMulC_v3_32f(&ray.x, distance, &place.x);
    zonmSub_v3_32f(&place.x, &centre.x, &normal.x);
    zonmNormalize_v3_32f(&normal.x, &normal.x);
    zonmMulC_v3_32f(&ray.x, -1, &toCamera.x);
    zonmNormalize_v3_32f(&toCamera.x, &toCamera.x);
    zonmAdd_v3_32f(&lamp.direction.x, &toCamera.x, &halfway.x);
    zonmNormalize_v3_32f(&halfway.x, &halfway.x);
    zonmDotProduct_v3_32f(&normal.x, &lamp.direction.x, &light);
    zonmDotProduct_v3_32f(&normal.x, &halfway.x, &gloss);

    const float around = 0.60f + 0.14f * normal.y; // brighter from above
    const float brightness = (around + 0.55f * std::max(0.f, light)) * (1 - 0.72f * hidden);
    Rgb colour;
    zonmInterpolationLinear_v3_32f(shadow.data(), atom.element->colour, brightness, colour.data());
    const float spot = 0.20f * std::pow(std::max(0.f, gloss), 40.f) * (1 - hidden);
    for (float &c : colour)
        c += spot;
    zonmInterpolationLinear_v3_32f(colour.data(), background.data(), mist, colour.data());
    return colour;
}

void drawLegend(common::Canvas &canvas, const std::vector<Atom> &atoms)
{
    const double size = std::max(11.0, canvas.height() / 48.0);
    const common::Colour ink{70, 74, 84};
    double x = size * 1.5;
    const double y = canvas.height() - size * 1.5;
    for (const Occurrence &found : elementsOf(atoms)) {
        const auto &c = found.element->colour;
        const auto byte = [](float f) { return static_cast<std::uint8_t>(std::lround(255 * f)); };
        canvas.disc({x, y - size * 0.36}, size * 0.46, {byte(c[0]), byte(c[1]), byte(c[2])});
        const std::string label =
            std::string(found.element->name) + ' ' + std::to_string(found.atoms);
        canvas.text({x + size * 0.8, y}, label, {size, ink});
        x += size * 2.6 + common::textWidth(label, size);
    }
}

} // namespace

common::Canvas drawSpheres(const std::vector<Atom> &atoms, const Angles &angles,
                           const Screen &screen, Framing framing)
{
    const View view(atoms, angles,
                    {screen.width * samples, screen.height * samples, screen.fieldOfView}, framing);
    const auto centres = view.beforeCamera(atoms);
    const Surface surface = meet(atoms, view, centres);
    const Lamp lamp;

    common::Canvas canvas(screen.width, screen.height, {});
    for (int y = 0; y < screen.height; ++y)
        for (int x = 0; x < screen.width; ++x) {
            Rgb sum = {};
            for (int s = 0; s < samples * samples; ++s) {
                const int sx = samples * x + s % samples, sy = samples * y + s / samples;
                const auto index = surface.index(sx, sy);
                Rgb colour = background;
                if (const auto k = surface.atom[index]; k >= 0) {
                    const auto a = static_cast<std::size_t>(k);
                    const float distance = surface.distance[index];
                    const float mist = 0.38f * std::clamp((distance - view.nearest()) /
                                                              (view.farthest() - view.nearest()),
                                                          0.f, 1.f);
                    const Point ray =
                        view.ahead(static_cast<float>(sx) + 0.5f, static_cast<float>(sy) + 0.5f);
                    colour = shade(atoms[a], centres[a], ray, distance, lamp,
                                   occlusion(surface, view, sx, sy), mist);
                }
                for (std::size_t c = 0; c < 3; ++c)
                    sum[c] += std::clamp(colour[c], 0.f, 1.f);
            }
            const auto byte = [](float f) {
                return static_cast<std::uint8_t>(std::lround(255 * f / (samples * samples)));
            };
            canvas.set(x, y, {byte(sum[0]), byte(sum[1]), byte(sum[2])});
        }
    drawLegend(canvas, atoms);
    return canvas;
}

} // namespace molecule
