#pragma once

// A small vector drawing kit for make_phony: shapes are signed distance functions (negative
// inside) in a design space, painted through an affine transform into a canvas with
// anti-aliased edges, then reduced to one shared palette.

#include <cstdint>
#include <functional>
#include <span>
#include <unordered_map>
#include <vector>

namespace corvel::phony {

struct Vec {
    double x = 0, y = 0;
};
inline Vec operator+(Vec a, Vec b) { return {a.x + b.x, a.y + b.y}; }
inline Vec operator-(Vec a, Vec b) { return {a.x - b.x, a.y - b.y}; }
inline Vec operator*(Vec a, double s) { return {a.x * s, a.y * s}; }
double length(Vec v);
Vec rotate(Vec v, double degrees);

struct Box {
    double left = 0, top = 0, right = 0, bottom = 0;
};

// A shape: its signed distance at a point of the design space, and a box that holds it.
struct Shape {
    std::function<double(Vec)> distance;
    Box bounds;
};

Shape circle(Vec centre, double radius);
Shape ellipse(Vec centre, Vec radii);
Shape capsule(Vec a, Vec b, double radius);                       // a stroke with round ends
Shape roundedBox(Vec centre, Vec half, double radius);
Shape polygon(std::vector<Vec> points);
Shape arc(Vec centre, double radius, double fromDegrees, double toDegrees, double thickness);
Shape polyline(std::vector<Vec> points, double thickness);

Shape unite(Shape a, Shape b);
Shape intersect(Shape a, Shape b);
Shape subtract(Shape a, Shape b);
Shape grow(Shape s, double by); // outwards; negative shrinks
Shape transformed(Shape s, Vec pivot, double degrees, Vec scale, Vec offset); // scale, rotate, move about pivot

struct Colour {
    double r = 0, g = 0, b = 0;
};
Colour rgb(std::uint32_t hex);
Colour mix(Colour a, Colour b, double t);

// Premultiplied colour with coverage.
struct Pixel {
    double r = 0, g = 0, b = 0, a = 0;
};

// Maps the design space onto canvas pixels: scale about `pivot`, rotate, then move.
struct View {
    Vec pivot{64, 120};
    Vec scale{1, 1};
    double degrees = 0;
    Vec offset{0, 0};
};

class Canvas {
public:
    Canvas(int width, int height);

    int width() const { return width_; }
    int height() const { return height_; }
    const Pixel& at(int x, int y) const { return pixels_[static_cast<std::size_t>(y) * width_ + x]; }

    void setView(const View& view) { view_ = view; }
    void paint(const Shape& shape, Colour colour, double opacity = 1);
    void paint(const Shape& shape, const std::function<Colour(Vec)>& colour, double opacity = 1);

private:
    int width_, height_;
    std::vector<Pixel> pixels_;
    View view_;
};

// A picture in palette indices, ready for a character: alpha below one half is transparent.
struct Indexed {
    int left = 0, top = 0; // where the crop sits on the canvas
    int width = 0, height = 0;
    std::vector<std::uint8_t> pixels;
};

// One palette for many canvases: colours are gathered first, then reduced to at most
// `slots.size()` entries by median cut, then canvases are mapped to the nearest entry.
class PaletteBuilder {
public:
    void gather(const Canvas& canvas);
    // Chooses the colours and writes them into the palette at the given indices.
    void build(std::vector<Colour>& palette, std::span<const std::uint8_t> slots);
    // The canvas cropped to its opaque pixels (or to `crop` when given) as palette indices.
    Indexed map(const Canvas& canvas, std::uint8_t transparent, const Box* crop = nullptr);

private:
    std::uint8_t nearest(std::uint32_t colour);

    std::unordered_map<std::uint32_t, std::uint32_t> counts_; // 0xRRGGBB -> pixels
    std::vector<std::pair<Colour, std::uint8_t>> entries_;
    std::unordered_map<std::uint32_t, std::uint8_t> cache_;
};

// The opaque bounds of a canvas, as whole pixels; empty (right <= left) when nothing shows.
Box opaqueBounds(const Canvas& canvas);
std::uint32_t packed(const Pixel& p); // 0xRRGGBB of an opaque pixel

} // namespace corvel::phony
