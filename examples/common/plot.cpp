// SPDX-License-Identifier: Apache-2.0
#include "common/plot.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

namespace common
{
namespace
{

constexpr Colour white{255, 255, 255}, black{34, 34, 34}, grey{68, 68, 68}, frame{136, 136, 136},
    faint{230, 230, 230};
constexpr double titleSize = 28, textSize = 21, gap = 14, tickLength = 9;

// The range of the finite data, a little wider where `margin` is given.
std::pair<double, double> rangeOf(const std::vector<Curve> &curves,
                                  std::vector<double> Curve::*values, double margin)
{
    double low = std::numeric_limits<double>::infinity(), high = -low;
    for (const auto &curve : curves)
        for (const double value : curve.*values)
            if (std::isfinite(value)) {
                low = std::min(low, value);
                high = std::max(high, value);
            }
    if (low > high)
        return {0, 1};
    const double room = high > low ? margin * (high - low) : std::max(1.0, std::abs(low)) / 2;
    return {low - room, high + room};
}

// Multiples of 1, 2 or 5 times a power of ten, about `wanted` of them.
std::vector<Tick> roundTicks(double from, double to, int wanted)
{
    const double rough = (to - from) / wanted;
    const double power = std::pow(10, std::floor(std::log10(rough)));
    const double step = power * (rough < 1.5 * power   ? 1
                                 : rough < 3.5 * power ? 2
                                 : rough < 7.5 * power ? 5
                                                       : 10);
    std::vector<Tick> ticks;
    const double first = std::ceil(from / step);
    // Counted, since numbers too large for their differences would not advance.
    for (int n = 0; n <= 2 * wanted && (first + n) * step <= to; ++n) {
        const double i = first + n;
        char label[32];
        const double value = i == 0 ? 0 : i * step; // no minus zero
        const bool plain = power > 1e-5 && power < 1e6;
        const int decimals = std::max(0, static_cast<int>(-std::floor(std::log10(step) + 1e-9)));
        std::snprintf(label, sizeof label, plain ? "%.*f" : "%.*g", plain ? decimals : 10, value);
        ticks.push_back({i * step, label});
    }
    return ticks;
}

struct Scale {
    double from, to, start, end; // data, pixels
    double operator()(double value) const
    {
        return start + (value - from) / (to - from) * (end - start);
    }
};

void drawCurve(Canvas &canvas, const Curve &curve, const Scale &x, const Scale &y, const Box &box)
{
    std::vector<Point> run;
    for (std::size_t i = 0; i <= curve.x.size(); ++i) {
        const bool there =
            i < curve.x.size() && std::isfinite(curve.x[i]) && std::isfinite(curve.y[i]);
        if (curve.kind == Curve::points && there)
            canvas.disc({x(curve.x[i]), y(curve.y[i])}, curve.size / 2, curve.colour);
        else if (there)
            run.push_back({x(curve.x[i]), y(curve.y[i])});
        else if (!run.empty()) {
            canvas.line(run.size() == 1 ? std::vector<Point>{run[0], run[0]} : run, curve.size,
                        curve.colour, box);
            run.clear();
        }
    }
}

void drawLegend(Canvas &canvas, const std::vector<Curve> &curves, const Box &box)
{
    double widest = 0, rows = 0;
    for (const auto &curve : curves)
        if (!curve.title.empty()) {
            widest = std::max(widest, textWidth(curve.title, textSize));
            ++rows;
        }
    if (rows == 0)
        return;
    const double sample = 40, row = 1.5 * textSize;
    const double left = box.left + gap, top = box.top + gap / 2;
    canvas.fill({left, top, left + sample + 2 * gap + widest, top + rows * row + gap / 2},
                {255, 255, 255, 0.85});
    double y = top + row / 2 + gap / 4;
    for (const auto &curve : curves) {
        if (curve.title.empty())
            continue;
        if (curve.kind == Curve::points)
            canvas.disc({left + sample / 2, y}, std::max(curve.size / 2, 4.0), curve.colour);
        else
            canvas.line({{left + 4, y}, {left + sample - 4, y}}, curve.size, curve.colour, box);
        canvas.text({left + sample + gap / 2, y + 0.36 * textSize}, curve.title, {textSize, black});
        y += row;
    }
}

struct Axes {
    Scale x, y;
    std::vector<Tick> xTicks, yTicks;
};

Axes axesOf(const Panel &panel)
{
    const auto given = [](const Axis &axis) { return axis.from != axis.to; };
    const auto x =
        given(panel.x) ? std::pair{panel.x.from, panel.x.to} : rangeOf(panel.curves, &Curve::x, 0);
    const auto y = given(panel.y) ? std::pair{panel.y.from, panel.y.to}
                                  : rangeOf(panel.curves, &Curve::y, 0.04);
    return {{x.first, x.second, 0, 0},
            {y.first, y.second, 0, 0},
            panel.x.ticks.empty() ? roundTicks(x.first, x.second, 10) : panel.x.ticks,
            panel.y.ticks.empty() ? roundTicks(y.first, y.second, 6) : panel.y.ticks};
}

void drawPanel(Canvas &canvas, const Panel &panel, Axes axes, const Box &box)
{
    axes.x.start = box.left;
    axes.x.end = box.right;
    axes.y.start = box.bottom;
    axes.y.end = box.top;
    for (const auto &tick : axes.yTicks) {
        const double y = std::round(axes.y(tick.at)) + 0.5;
        if (tick.at < axes.y.from || tick.at > axes.y.to)
            continue;
        canvas.fill({box.left, y - 0.5, box.right, y + 0.5}, faint);
        canvas.fill({box.left - tickLength, y - 0.5, box.left, y + 0.5}, frame);
        canvas.text({box.left - tickLength - gap / 2, y + 0.36 * textSize}, tick.label,
                    {textSize, grey, Align::right});
    }
    if (panel.zeroLine && axes.y.from < 0 && axes.y.to > 0)
        canvas.fill({box.left, axes.y(0) - 0.75, box.right, axes.y(0) + 0.75}, frame);
    for (const auto &tick : axes.xTicks) {
        const double x = std::round(axes.x(tick.at)) + 0.5;
        if (tick.at < axes.x.from || tick.at > axes.x.to)
            continue;
        canvas.fill({x - 0.5, box.bottom, x + 0.5,
                     box.bottom + (tick.label.empty() ? tickLength / 2 : tickLength)},
                    frame);
        canvas.text({x, box.bottom + tickLength + 1.1 * textSize}, tick.label,
                    {textSize, grey, Align::centre});
    }
    canvas.fill({box.left - 0.5, box.top, box.left + 0.5, box.bottom + 0.5}, frame);
    canvas.fill({box.left - 0.5, box.bottom - 0.5, box.right, box.bottom + 0.5}, frame);
    for (const auto &curve : panel.curves)
        drawCurve(canvas, curve, axes.x, axes.y, box);
    drawLegend(canvas, panel.curves, box);
    canvas.text({(box.left + box.right) / 2, box.bottom + tickLength + 2.5 * textSize},
                panel.x.label, {textSize, grey, Align::centre});
    canvas.text({1.4 * textSize, (box.top + box.bottom) / 2}, panel.y.label,
                {textSize, grey, Align::centre, true});
}

} // namespace

Canvas drawPlot(const std::string &title, const std::vector<Panel> &panels, int width, int height)
{
    Canvas canvas(width, height, white);
    std::vector<Axes> axes;
    double widestLabel = 0, shares = 0, feet = 0, right = 3 * gap;
    const auto foot = [](const Panel &panel) {
        return tickLength + (panel.x.label.empty() ? 2.4 : 3.6) * textSize;
    };
    for (const auto &panel : panels) {
        axes.push_back(axesOf(panel));
        for (const auto &tick : axes.back().yTicks)
            widestLabel = std::max(widestLabel, textWidth(tick.label, textSize));
        if (!axes.back().xTicks.empty()) // half of it stands beyond its tick
            right = std::max(right, textWidth(axes.back().xTicks.back().label, textSize) / 2 + gap);
        shares += panel.share;
        feet += foot(panel);
    }
    canvas.text({width / 2.0, 1.6 * titleSize}, title, {titleSize, black, Align::centre});
    const double left = std::round(1.4 * textSize + 2 * gap + widestLabel + tickLength);
    double top = 2.4 * titleSize;
    const double room = height - top - feet;
    for (std::size_t i = 0; i < panels.size(); ++i) {
        const double bottom = std::round(top + room * panels[i].share / shares);
        drawPanel(canvas, panels[i], axes[i], {left, std::round(top), width - right, bottom});
        top = bottom + foot(panels[i]);
    }
    return canvas;
}

} // namespace common
