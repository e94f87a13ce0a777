#pragma once

#include <cairo.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace cli {

struct Colour {
    double red = 0, green = 0, blue = 0, alpha = 1;
};

struct Point {
    double x = 0, y = 0;
};

/// In pixels, y downwards.
struct Box {
    double left = 0, top = 0, right = 0, bottom = 0;

    double width() const { return right - left; }
    double height() const { return bottom - top; }
    bool meets(const Box& other) const {
        return left < other.right && other.left < right && top < other.bottom && other.top < bottom;
    }
    bool holds(const Box& other) const {
        return left <= other.left && other.right <= right && top <= other.top && other.bottom <= bottom;
    }
};

/// Where a text's own box lies as seen from its point.
enum class Anchor { left, centre, right };

/// An image that is drawn on.
class Canvas {
 public:
    Canvas(int width, int height, Colour background);

    void line(Point from, Point to, Colour colour, double width = 1);
    void polyline(const std::vector<Point>& points, Colour colour, double width = 1);
    void polygon(const std::vector<Point>& points, Colour colour);
    void rectangle(const Box& box, Colour colour);
    void frame(const Box& box, Colour colour);
    /// The point is on the text's middle line.
    void text(Point at, const std::string& text, Anchor anchor, double size, Colour colour,
              bool bold = false);
    /// Upwards, about its middle.
    void textUpwards(Point at, const std::string& text, double size, Colour colour);
    double textWidth(const std::string& text, double size, bool bold = false);
    /// Pixels as 0xRRGGBB, row by row from the top, stretched over the box without smoothing.
    void image(const Box& box, const std::vector<uint32_t>& pixels, int width, int height);
    /// Nothing is drawn outside of the box until the next call.
    void clip(const Box& box);
    void unclip();

    /// The image as a PNG file. Throws Failure with Exit::failure.
    std::vector<uint8_t> png();

 private:
    void set(Colour colour);
    void font(double size, bool bold);
    void path(const std::vector<Point>& points);

    std::unique_ptr<cairo_surface_t, void (*)(cairo_surface_t*)> mcSurface;
    std::unique_ptr<cairo_t, void (*)(cairo_t*)> mcContext;
};

/// Gives back what drawing keeps for the next drawing. No canvas may be left.
void releaseDrawingCaches();

}  // namespace cli
