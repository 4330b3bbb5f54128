// SPDX-License-Identifier: Apache-2.0
#include "common/canvas.hpp"

#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_OUTLINE_H
#include <png.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <stdexcept>

namespace common
{
namespace
{

// EXAMPLE_FONT is the file that the build found.
class Font
{
  public:
    static Font &instance()
    {
        static Font font;
        return font;
    }
    // The face at this size, turned upwards or not.
    FT_Face at(double size, bool upwards)
    {
        FT_Set_Char_Size(face, 0, static_cast<FT_F26Dot6>(std::lround(size * 64)), 72, 72);
        FT_Matrix turn{0, -0x10000, 0x10000, 0};
        FT_Set_Transform(face, upwards ? &turn : nullptr, nullptr);
        return face;
    }

  private:
    Font()
    {
        if (FT_Init_FreeType(&library) != 0 || FT_New_Face(library, EXAMPLE_FONT, 0, &face) != 0)
            throw std::runtime_error("cannot read the font " EXAMPLE_FONT
                                     "; install it again (Debian: fonts-dejavu-core)");
    }
    ~Font()
    {
        FT_Done_Face(face);
        FT_Done_FreeType(library);
    }
    Font(const Font &) = delete;
    Font &operator=(const Font &) = delete;

    FT_Library library = nullptr;
    FT_Face face = nullptr;
};

std::vector<std::uint32_t> codePoints(std::string_view text)
{
    std::vector<std::uint32_t> points;
    for (const char c : text) {
        const auto byte = static_cast<std::uint8_t>(c);
        if ((byte & 0xC0) != 0x80) // the first byte of a character tells how long it is
            points.push_back(byte < 0x80 ? byte
                                         : byte & (byte < 0xE0   ? 0x1F
                                                   : byte < 0xF0 ? 0x0F
                                                                 : 7));
        else if (!points.empty())
            points.back() = points.back() << 6 | (byte & 0x3F);
    }
    return points;
}

double distance(Point p, Point a, Point b)
{
    const double dx = b.x - a.x, dy = b.y - a.y;
    const double square = dx * dx + dy * dy;
    const double along =
        square > 0 ? std::clamp(((p.x - a.x) * dx + (p.y - a.y) * dy) / square, 0.0, 1.0) : 0;
    return std::hypot(p.x - a.x - along * dx, p.y - a.y - along * dy);
}

// The pixels [first, last) that an interval touches, within a limit.
std::pair<int, int> touched(double from, double to, int limit)
{
    const double bound = limit;
    return {static_cast<int>(std::clamp(std::floor(from), 0.0, bound)),
            static_cast<int>(std::clamp(std::ceil(to), 0.0, bound))};
}

// The part of a pixel that an interval covers.
double covered(double from, double to, int pixel)
{
    return std::max(0.0, std::min(to, pixel + 1.0) - std::max(from, static_cast<double>(pixel)));
}

} // namespace

Canvas::Canvas(int width, int height, Colour background)
    : columns(width), rows(height),
      pixels(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3)
{
    fill({0, 0, static_cast<double>(width), static_cast<double>(height)}, background);
}

void Canvas::blend(int x, int y, double coverage, Colour colour)
{
    const double share = std::clamp(coverage, 0.0, 1.0) * colour.opacity;
    auto *pixel = &pixels[3 * (static_cast<std::size_t>(y) * static_cast<std::size_t>(columns) +
                               static_cast<std::size_t>(x))];
    const std::uint8_t parts[] = {colour.red, colour.green, colour.blue};
    for (int i = 0; i < 3; ++i)
        pixel[i] = static_cast<std::uint8_t>(std::lround(pixel[i] + share * (parts[i] - pixel[i])));
}

void Canvas::fill(const Box &box, Colour colour)
{
    const auto [left, right] = touched(box.left, box.right, columns);
    const auto [top, bottom] = touched(box.top, box.bottom, rows);
    for (int y = top; y < bottom; ++y)
        for (int x = left; x < right; ++x)
            blend(x, y, covered(box.left, box.right, x) * covered(box.top, box.bottom, y), colour);
}

void Canvas::disc(Point centre, double radius, Colour colour)
{
    const auto [left, right] = touched(centre.x - radius - 1, centre.x + radius + 1, columns);
    const auto [top, bottom] = touched(centre.y - radius - 1, centre.y + radius + 1, rows);
    for (int y = top; y < bottom; ++y)
        for (int x = left; x < right; ++x)
            blend(x, y, radius + 0.5 - std::hypot(x + 0.5 - centre.x, y + 0.5 - centre.y), colour);
}

void Canvas::line(const std::vector<Point> &points, double width, Colour colour, const Box &clip)
{
    const double radius = width / 2;
    const auto reach = [&](const Point &a,
                           const Point &b) { // first column and row, behind the last
        const auto [left, right] =
            touched(std::max(clip.left, std::min(a.x, b.x) - radius - 1),
                    std::min(clip.right, std::max(a.x, b.x) + radius + 1), columns);
        const auto [top, bottom] =
            touched(std::max(clip.top, std::min(a.y, b.y) - radius - 1),
                    std::min(clip.bottom, std::max(a.y, b.y) + radius + 1), rows);
        return std::array{left, top, right, bottom};
    };
    const auto byX = std::minmax_element(points.begin(), points.end(),
                                         [](auto &a, auto &b) { return a.x < b.x; });
    const auto byY = std::minmax_element(points.begin(), points.end(),
                                         [](auto &a, auto &b) { return a.y < b.y; });
    if (points.empty())
        return;
    // The largest coverage of each pixel by any of the segments.
    const auto whole = reach({byX.first->x, byY.first->y}, {byX.second->x, byY.second->y});
    const int pitch = std::max(0, whole[2] - whole[0]), height = std::max(0, whole[3] - whole[1]);
    std::vector<double> mask(static_cast<std::size_t>(pitch) * static_cast<std::size_t>(height));
    const auto at = [&](int x, int y) -> double & {
        return mask[static_cast<std::size_t>((y - whole[1]) * pitch + x - whole[0])];
    };
    for (std::size_t i = 1; i < points.size(); ++i) {
        const auto box = reach(points[i - 1], points[i]);
        for (int y = box[1]; y < box[3]; ++y)
            for (int x = box[0]; x < box[2]; ++x)
                at(x, y) =
                    std::max(at(x, y),
                             radius + 0.5 - distance({x + 0.5, y + 0.5}, points[i - 1], points[i]));
    }
    for (int y = whole[1]; y < whole[3]; ++y)
        for (int x = whole[0]; x < whole[2]; ++x)
            if (at(x, y) > 0)
                blend(x, y, at(x, y), colour);
}

void Canvas::text(Point anchor, std::string_view text, const TextStyle &style)
{
    const double length = textWidth(text, style.size);
    const double before = style.align == Align::left     ? 0
                          : style.align == Align::centre ? length / 2
                                                         : length;
    const FT_Face face = Font::instance().at(style.size, style.upwards);
    // In FreeType's units, 64 to a pixel, y upwards.
    double penX = 64 * (anchor.x - (style.upwards ? 0 : before));
    double penY = -64 * (anchor.y + (style.upwards ? before : 0));
    for (const auto code : codePoints(text)) {
        if (FT_Load_Char(face, code, FT_LOAD_NO_HINTING | FT_LOAD_NO_BITMAP) != 0)
            continue;
        const FT_GlyphSlot glyph = face->glyph;
        const double wholeX = std::floor(penX / 64), wholeY = std::floor(penY / 64);
        FT_Outline_Translate(&glyph->outline, std::lround(penX - 64 * wholeX),
                             std::lround(penY - 64 * wholeY));
        if (FT_Render_Glyph(glyph, FT_RENDER_MODE_NORMAL) == 0) {
            const auto &bitmap = glyph->bitmap;
            for (int row = 0; row < static_cast<int>(bitmap.rows); ++row)
                for (int column = 0; column < static_cast<int>(bitmap.width); ++column) {
                    const int x = static_cast<int>(wholeX) + glyph->bitmap_left + column;
                    const int y = -static_cast<int>(wholeY) - glyph->bitmap_top + row;
                    if (x >= 0 && x < columns && y >= 0 && y < rows)
                        blend(x, y, bitmap.buffer[row * bitmap.pitch + column] / 255.0,
                              style.colour);
                }
        }
        penX += static_cast<double>(glyph->advance.x);
        penY += static_cast<double>(glyph->advance.y);
    }
}

double textWidth(std::string_view text, double size)
{
    const FT_Face face = Font::instance().at(size, false);
    double width = 0;
    for (const auto code : codePoints(text))
        if (FT_Load_Char(face, code, FT_LOAD_NO_HINTING | FT_LOAD_NO_BITMAP) == 0)
            width += static_cast<double>(face->glyph->advance.x) / 64;
    return width;
}

std::string Canvas::png() const
{
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(columns);
    image.height = static_cast<png_uint_32>(rows);
    image.format = PNG_FORMAT_RGB;
    png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(image);
    std::string file(size, '\0');
    if (!png_image_write_to_memory(&image, file.data(), &size, 0, pixels.data(), 0, nullptr))
        throw std::runtime_error(std::string("the PNG was not made: ") + image.message);
    file.resize(size);
    return file;
}

} // namespace common
