#include "drawing.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace corvel::phony {

namespace {

double dot(Vec a, Vec b) { return a.x * b.x + a.y * b.y; }
double radians(double degrees) { return degrees * std::numbers::pi / 180; }

Box around(Vec centre, Vec half) { return {centre.x - half.x, centre.y - half.y, centre.x + half.x, centre.y + half.y}; }
Box expand(Box b, double by) { return {b.left - by, b.top - by, b.right + by, b.bottom + by}; }
Box join(Box a, Box b)
{
    return {std::min(a.left, b.left), std::min(a.top, b.top), std::max(a.right, b.right), std::max(a.bottom, b.bottom)};
}
Box meet(Box a, Box b)
{
    return {std::max(a.left, b.left), std::max(a.top, b.top), std::min(a.right, b.right), std::min(a.bottom, b.bottom)};
}

double segmentDistance(Vec p, Vec a, Vec b)
{
    const Vec ab = b - a, ap = p - a;
    const double t = std::clamp(dot(ap, ab) / std::max(dot(ab, ab), 1e-12), 0.0, 1.0);
    return length(ap - ab * t);
}

Box boundsOf(const std::vector<Vec>& points)
{
    Box b{points[0].x, points[0].y, points[0].x, points[0].y};
    for (Vec p : points) b = join(b, {p.x, p.y, p.x, p.y});
    return b;
}

} // namespace

double length(Vec v) { return std::hypot(v.x, v.y); }

Vec rotate(Vec v, double degrees)
{
    const double c = std::cos(radians(degrees)), s = std::sin(radians(degrees));
    return {v.x * c - v.y * s, v.x * s + v.y * c};
}

Shape circle(Vec centre, double radius)
{
    return {[=](Vec p) { return length(p - centre) - radius; }, around(centre, {radius, radius})};
}

Shape ellipse(Vec centre, Vec radii)
{
    return {[=](Vec p) {
                const Vec q = p - centre;
                const double k0 = std::hypot(q.x / radii.x, q.y / radii.y);
                const double k1 = std::hypot(q.x / (radii.x * radii.x), q.y / (radii.y * radii.y));
                return k1 > 1e-9 ? k0 * (k0 - 1) / k1 : -std::min(radii.x, radii.y);
            },
            around(centre, radii)};
}

Shape capsule(Vec a, Vec b, double radius)
{
    return {[=](Vec p) { return segmentDistance(p, a, b) - radius; },
            expand(boundsOf({a, b}), radius)};
}

Shape roundedBox(Vec centre, Vec half, double radius)
{
    return {[=](Vec p) {
                const Vec q{std::abs(p.x - centre.x) - half.x + radius, std::abs(p.y - centre.y) - half.y + radius};
                const Vec outside{std::max(q.x, 0.0), std::max(q.y, 0.0)};
                return length(outside) + std::min(std::max(q.x, q.y), 0.0) - radius;
            },
            around(centre, half)};
}

Shape polygon(std::vector<Vec> points)
{
    const Box bounds = boundsOf(points);
    return {[points = std::move(points)](Vec p) {
                double nearest = std::numeric_limits<double>::max();
                bool inside = false;
                for (std::size_t i = 0, j = points.size() - 1; i < points.size(); j = i++) {
                    const Vec a = points[i], b = points[j];
                    nearest = std::min(nearest, segmentDistance(p, a, b));
                    if ((a.y > p.y) != (b.y > p.y) && p.x < (b.x - a.x) * (p.y - a.y) / (b.y - a.y) + a.x)
                        inside = !inside;
                }
                return inside ? -nearest : nearest;
            },
            bounds};
}

Shape arc(Vec centre, double radius, double fromDegrees, double toDegrees, double thickness)
{
    const Vec start = centre + Vec{std::cos(radians(fromDegrees)), std::sin(radians(fromDegrees))} * radius;
    const Vec end = centre + Vec{std::cos(radians(toDegrees)), std::sin(radians(toDegrees))} * radius;
    return {[=](Vec p) {
                const Vec q = p - centre;
                double angle = std::atan2(q.y, q.x) * 180 / std::numbers::pi;
                while (angle < fromDegrees) angle += 360;
                while (angle >= fromDegrees + 360) angle -= 360;
                const double along = angle <= toDegrees ? std::abs(length(q) - radius)
                                                        : std::min(length(p - start), length(p - end));
                return along - thickness / 2;
            },
            around(centre, {radius + thickness, radius + thickness})};
}

Shape polyline(std::vector<Vec> points, double thickness)
{
    const Box bounds = expand(boundsOf(points), thickness);
    return {[points = std::move(points), thickness](Vec p) {
                double nearest = std::numeric_limits<double>::max();
                for (std::size_t i = 1; i < points.size(); ++i)
                    nearest = std::min(nearest, segmentDistance(p, points[i - 1], points[i]));
                return nearest - thickness / 2;
            },
            bounds};
}

Shape unite(Shape a, Shape b)
{
    const Box bounds = join(a.bounds, b.bounds);
    return {[a = std::move(a.distance), b = std::move(b.distance)](Vec p) { return std::min(a(p), b(p)); }, bounds};
}

Shape intersect(Shape a, Shape b)
{
    const Box bounds = meet(a.bounds, b.bounds);
    return {[a = std::move(a.distance), b = std::move(b.distance)](Vec p) { return std::max(a(p), b(p)); }, bounds};
}

Shape subtract(Shape a, Shape b)
{
    const Box bounds = a.bounds;
    return {[a = std::move(a.distance), b = std::move(b.distance)](Vec p) { return std::max(a(p), -b(p)); }, bounds};
}

Shape grow(Shape s, double by)
{
    const Box bounds = expand(s.bounds, std::max(by, 0.0));
    return {[d = std::move(s.distance), by](Vec p) { return d(p) - by; }, bounds};
}

namespace {

Box placedBounds(Box b, Vec pivot, double degrees, Vec scale, Vec offset)
{
    Box bounds{1e9, 1e9, -1e9, -1e9};
    for (Vec corner : {Vec{b.left, b.top}, Vec{b.right, b.top}, Vec{b.left, b.bottom}, Vec{b.right, b.bottom}}) {
        const Vec q = pivot + offset + rotate(Vec{(corner.x - pivot.x) * scale.x, (corner.y - pivot.y) * scale.y}, degrees);
        bounds = join(bounds, {q.x, q.y, q.x, q.y});
    }
    return bounds;
}

// The design-space point that lands on q.
Vec unplace(Vec q, Vec pivot, double degrees, Vec scale, Vec offset)
{
    const Vec r = rotate(q - pivot - offset, -degrees);
    return pivot + Vec{r.x / scale.x, r.y / scale.y};
}

} // namespace

Shape transformed(Shape s, Vec pivot, double degrees, Vec scale, Vec offset)
{
    const Box bounds = placedBounds(s.bounds, pivot, degrees, scale, offset);
    const double factor = std::sqrt(scale.x * scale.y);
    return {[d = std::move(s.distance), pivot, degrees, scale, offset, factor](Vec p) {
                return d(unplace(p, pivot, degrees, scale, offset)) * factor;
            },
            bounds};
}

Colour rgb(std::uint32_t hex)
{
    return {static_cast<double>(hex >> 16 & 0xFF), static_cast<double>(hex >> 8 & 0xFF), static_cast<double>(hex & 0xFF)};
}

Colour mix(Colour a, Colour b, double t)
{
    return {a.r + (b.r - a.r) * t, a.g + (b.g - a.g) * t, a.b + (b.b - a.b) * t};
}

Canvas::Canvas(int width, int height)
    : width_(width), height_(height), pixels_(static_cast<std::size_t>(width) * height)
{
}

void Canvas::paint(const Shape& shape, Colour colour, double opacity)
{
    paint(shape, [colour](Vec) { return colour; }, opacity);
}

void Canvas::paint(const Shape& shape, const std::function<Colour(Vec)>& colour, double opacity)
{
    const View& v = view_;
    const Box b = placedBounds(shape.bounds, v.pivot, v.degrees, v.scale, v.offset);
    const int x0 = std::max(0, static_cast<int>(std::floor(b.left - 2)));
    const int y0 = std::max(0, static_cast<int>(std::floor(b.top - 2)));
    const int x1 = std::min(width_, static_cast<int>(std::ceil(b.right + 2)));
    const int y1 = std::min(height_, static_cast<int>(std::ceil(b.bottom + 2)));
    const double factor = std::sqrt(v.scale.x * v.scale.y); // design units to pixels
    for (int y = y0; y < y1; ++y)
        for (int x = x0; x < x1; ++x) {
            const Vec design = unplace({x + 0.5, y + 0.5}, v.pivot, v.degrees, v.scale, v.offset);
            const double cover = std::clamp(0.5 - shape.distance(design) * factor, 0.0, 1.0) * opacity;
            if (cover <= 0) continue;
            const Colour c = colour(design);
            Pixel& px = pixels_[static_cast<std::size_t>(y) * width_ + x];
            px.r = c.r * cover + px.r * (1 - cover);
            px.g = c.g * cover + px.g * (1 - cover);
            px.b = c.b * cover + px.b * (1 - cover);
            px.a = cover + px.a * (1 - cover);
        }
}

std::uint32_t packed(const Pixel& p)
{
    const auto channel = [&](double v) {
        return static_cast<std::uint32_t>(std::clamp(std::lround(v / p.a), 0L, 255L));
    };
    return channel(p.r) << 16 | channel(p.g) << 8 | channel(p.b);
}

Box opaqueBounds(const Canvas& canvas)
{
    Box b{static_cast<double>(canvas.width()), static_cast<double>(canvas.height()), 0, 0};
    for (int y = 0; y < canvas.height(); ++y)
        for (int x = 0; x < canvas.width(); ++x)
            if (canvas.at(x, y).a >= 0.5) b = join(b, {double(x), double(y), double(x + 1), double(y + 1)});
    return b;
}

void PaletteBuilder::gather(const Canvas& canvas)
{
    for (int y = 0; y < canvas.height(); ++y)
        for (int x = 0; x < canvas.width(); ++x)
            if (canvas.at(x, y).a >= 0.5) ++counts_[packed(canvas.at(x, y))];
}

void PaletteBuilder::build(std::vector<Colour>& palette, std::span<const std::uint8_t> slots)
{
    struct Entry {
        std::uint32_t colour, count;
        int channel(int c) const { return static_cast<int>(colour >> (16 - 8 * c) & 0xFF); }
    };
    using Group = std::vector<Entry>;
    std::vector<Group> groups(1);
    for (const auto& [colour, count] : counts_) groups[0].push_back({colour, count});
    std::ranges::sort(groups[0], {}, &Entry::colour); // the same palette on every run
    const auto spread = [](const Group& g, int& widest) {
        int best = -1;
        for (int c = 0; c < 3; ++c) {
            const auto [lo, hi] = std::ranges::minmax(g, {}, [c](const Entry& e) { return e.channel(c); });
            if (hi.channel(c) - lo.channel(c) > best) {
                best = hi.channel(c) - lo.channel(c);
                widest = c;
            }
        }
        return best;
    };
    // Median cut: split the group with the widest weighted spread until every slot is used.
    while (groups.size() < slots.size()) {
        double best = 0;
        std::size_t chosen = groups.size();
        int channel = 0;
        for (std::size_t i = 0; i < groups.size(); ++i) {
            if (groups[i].size() < 2) continue;
            int c = 0;
            std::uint64_t pixels = 0;
            for (const Entry& e : groups[i]) pixels += e.count;
            const double score = spread(groups[i], c) * std::sqrt(static_cast<double>(pixels));
            if (score > best) {
                best = score;
                chosen = i;
                channel = c;
            }
        }
        if (chosen == groups.size()) break;
        Group& g = groups[chosen];
        std::ranges::sort(g, {}, [channel](const Entry& e) { return e.channel(channel); });
        std::uint64_t total = 0, half = 0;
        for (const Entry& e : g) total += e.count;
        std::size_t cut = 1;
        for (; cut < g.size() - 1; ++cut) {
            half += g[cut - 1].count;
            if (half * 2 >= total) break;
        }
        groups.emplace_back(g.begin() + static_cast<long>(cut), g.end());
        groups[chosen].resize(cut);
    }
    entries_.clear();
    cache_.clear();
    for (std::size_t i = 0; i < groups.size(); ++i) {
        double r = 0, g = 0, b = 0, n = 0;
        for (const Entry& e : groups[i]) {
            r += e.channel(0) * double(e.count);
            g += e.channel(1) * double(e.count);
            b += e.channel(2) * double(e.count);
            n += e.count;
        }
        const Colour c = n > 0 ? Colour{std::round(r / n), std::round(g / n), std::round(b / n)} : Colour{};
        palette[slots[i]] = c;
        entries_.emplace_back(c, slots[i]);
    }
}

std::uint8_t PaletteBuilder::nearest(std::uint32_t colour)
{
    if (const auto found = cache_.find(colour); found != cache_.end()) return found->second;
    const Colour c = rgb(colour);
    double best = std::numeric_limits<double>::max();
    std::uint8_t index = 0;
    for (const auto& [entry, slot] : entries_) {
        const double d = (entry.r - c.r) * (entry.r - c.r) * 0.3 + (entry.g - c.g) * (entry.g - c.g) * 0.59 +
                         (entry.b - c.b) * (entry.b - c.b) * 0.11;
        if (d < best) {
            best = d;
            index = slot;
        }
    }
    cache_.emplace(colour, index);
    return index;
}

Indexed PaletteBuilder::map(const Canvas& canvas, std::uint8_t transparent, const Box* crop)
{
    const Box b = crop ? *crop : opaqueBounds(canvas);
    Indexed out;
    out.left = static_cast<int>(b.left);
    out.top = static_cast<int>(b.top);
    out.width = std::max(0, static_cast<int>(b.right - b.left));
    out.height = std::max(0, static_cast<int>(b.bottom - b.top));
    out.pixels.assign(static_cast<std::size_t>(out.width) * out.height, transparent);
    for (int y = 0; y < out.height; ++y)
        for (int x = 0; x < out.width; ++x) {
            const Pixel& p = canvas.at(out.left + x, out.top + y);
            if (p.a >= 0.5) out.pixels[static_cast<std::size_t>(y) * out.width + x] = nearest(packed(p));
        }
    return out;
}

} // namespace corvel::phony
