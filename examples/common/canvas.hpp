// SPDX-License-Identifier: Apache-2.0
// A picture in memory: smooth lines, discs and text, and out comes a PNG.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace common
{

struct Colour {
    std::uint8_t red, green, blue;
    double opacity = 1;
};

struct Point {
    double x, y; // pixels, y downwards
};

struct Box {
    double left, top, right, bottom;
};

enum class Align { left, centre, right };

struct TextStyle {
    double size; // pixels of an em
    Colour colour;
    Align align = Align::left;
    bool upwards = false; // turned by a quarter to the left
};

class Canvas
{
  public:
    Canvas(int width, int height, Colour background);

    void fill(const Box &box, Colour colour);
    void disc(Point centre, double radius, Colour colour);
    // Within `clip`. A line with an opacity covers itself only once.
    void line(const std::vector<Point> &points, double width, Colour colour, const Box &clip);
    // `anchor` is on the base line. UTF-8. Throws std::runtime_error if there is no font.
    void text(Point anchor, std::string_view text, const TextStyle &style);

    int width() const { return columns; }
    int height() const { return rows; }
    std::string png() const;

  private:
    void blend(int x, int y, double coverage, Colour colour);

    int columns, rows;
    std::vector<std::uint8_t> pixels; // red, green, blue
};

double textWidth(std::string_view text, double size);

} // namespace common
