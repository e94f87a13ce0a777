#include "tools/canvas.h"

#include <fontconfig/fontconfig.h>

#include <cstring>
#include <numbers>

#include "tools/exitcodes.h"

namespace cli {

namespace {

/// A line of one pixel lies on pixels, not between them.
double crisp(double value) {
    return static_cast<double>(static_cast<int>(value)) + 0.5;
}

cairo_status_t append(void* bytes, const unsigned char* data, unsigned int length) {
    try {
        auto& png = *static_cast<std::vector<uint8_t>*>(bytes);
        png.insert(png.end(), data, data + length);
        return CAIRO_STATUS_SUCCESS;
    } catch (...) {
        return CAIRO_STATUS_NO_MEMORY;
    }
}

}  // namespace

Canvas::Canvas(int width, int height, Colour background)
    : mcSurface(cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height), cairo_surface_destroy),
      mcContext(cairo_create(mcSurface.get()), cairo_destroy) {
    set(background);
    cairo_paint(mcContext.get());
}

void Canvas::set(Colour colour) {
    cairo_set_source_rgba(mcContext.get(), colour.red, colour.green, colour.blue, colour.alpha);
}

void Canvas::path(const std::vector<Point>& points) {
    cairo_new_path(mcContext.get());
    for (const Point& point : points)
        cairo_line_to(mcContext.get(), point.x, point.y);
}

void Canvas::line(Point from, Point to, Colour colour, double width) {
    const bool bStraight = from.x == to.x || from.y == to.y;
    polyline(bStraight ? std::vector<Point>{{crisp(from.x), crisp(from.y)}, {crisp(to.x), crisp(to.y)}}
                       : std::vector<Point>{from, to},
             colour, width);
}

void Canvas::polyline(const std::vector<Point>& points, Colour colour, double width) {
    path(points);
    set(colour);
    cairo_set_line_width(mcContext.get(), width);
    cairo_set_line_join(mcContext.get(), CAIRO_LINE_JOIN_BEVEL);
    cairo_stroke(mcContext.get());
}

void Canvas::polygon(const std::vector<Point>& points, Colour colour) {
    path(points);
    cairo_close_path(mcContext.get());
    set(colour);
    cairo_fill(mcContext.get());
}

void Canvas::rectangle(const Box& box, Colour colour) {
    cairo_rectangle(mcContext.get(), box.left, box.top, box.width(), box.height());
    set(colour);
    cairo_fill(mcContext.get());
}

void Canvas::frame(const Box& box, Colour colour) {
    cairo_rectangle(mcContext.get(), crisp(box.left), crisp(box.top), static_cast<int>(box.width()),
                    static_cast<int>(box.height()));
    set(colour);
    cairo_set_line_width(mcContext.get(), 1);
    cairo_stroke(mcContext.get());
}

void Canvas::font(double size, bool bold) {
    cairo_select_font_face(mcContext.get(), "sans-serif", CAIRO_FONT_SLANT_NORMAL,
                           bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(mcContext.get(), size);
}

double Canvas::textWidth(const std::string& text, double size, bool bold) {
    font(size, bold);
    cairo_text_extents_t extents;
    cairo_text_extents(mcContext.get(), text.c_str(), &extents);
    return extents.x_advance;
}

void Canvas::text(Point at, const std::string& text, Anchor anchor, double size, Colour colour, bool bold) {
    const double dWidth = textWidth(text, size, bold);
    const double dShift = anchor == Anchor::left ? 0 : anchor == Anchor::right ? dWidth : dWidth / 2;
    cairo_font_extents_t extents;
    cairo_font_extents(mcContext.get(), &extents);
    set(colour);
    cairo_move_to(mcContext.get(), at.x - dShift, at.y + (extents.ascent - extents.descent) / 2);
    cairo_show_text(mcContext.get(), text.c_str());
}

void Canvas::textUpwards(Point at, const std::string& text, double size, Colour colour) {
    cairo_save(mcContext.get());
    cairo_translate(mcContext.get(), at.x, at.y);
    cairo_rotate(mcContext.get(), -std::numbers::pi / 2);
    this->text({0, 0}, text, Anchor::centre, size, colour);
    cairo_restore(mcContext.get());
}

void Canvas::image(const Box& box, const std::vector<uint32_t>& pixels, int width, int height) {
    if (width <= 0 || height <= 0 || pixels.size() < static_cast<size_t>(width) * static_cast<size_t>(height))
        return;
    const std::unique_ptr<cairo_surface_t, void (*)(cairo_surface_t*)> source(
        cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height), cairo_surface_destroy);
    unsigned char* pTarget = cairo_image_surface_get_data(source.get());
    if (pTarget == nullptr)
        return;
    cairo_surface_flush(source.get());
    const auto uStride = static_cast<size_t>(cairo_image_surface_get_stride(source.get()));
    const size_t uRow = static_cast<size_t>(width);
    for (size_t r = 0; r < static_cast<size_t>(height); ++r)
        std::memcpy(pTarget + r * uStride, pixels.data() + r * uRow, uRow * sizeof(uint32_t));
    cairo_surface_mark_dirty(source.get());
    cairo_save(mcContext.get());
    cairo_rectangle(mcContext.get(), box.left, box.top, box.width(), box.height());
    cairo_clip(mcContext.get());
    cairo_translate(mcContext.get(), box.left, box.top);
    cairo_scale(mcContext.get(), box.width() / width, box.height() / height);
    cairo_set_source_surface(mcContext.get(), source.get(), 0, 0);
    cairo_pattern_set_filter(cairo_get_source(mcContext.get()), CAIRO_FILTER_NEAREST);
    cairo_paint(mcContext.get());
    cairo_restore(mcContext.get());
}

void Canvas::clip(const Box& box) {
    cairo_rectangle(mcContext.get(), box.left, box.top, box.width(), box.height());
    cairo_clip(mcContext.get());
}

void Canvas::unclip() {
    cairo_reset_clip(mcContext.get());
}

std::vector<uint8_t> Canvas::png() {
    std::vector<uint8_t> bytes;
    cairo_status_t status = cairo_status(mcContext.get());
    if (status == CAIRO_STATUS_SUCCESS)
        status = cairo_surface_write_to_png_stream(mcSurface.get(), append, &bytes);
    if (status != CAIRO_STATUS_SUCCESS)
        throw Failure(Exit::failure,
                      std::string("the picture cannot be drawn: ") + cairo_status_to_string(status));
    return bytes;
}

// A leak checker cannot follow the pointers in which cached fonts hold what they have.
void releaseDrawingCaches() {
    cairo_debug_reset_static_data();
    FcFini();
}

}  // namespace cli
