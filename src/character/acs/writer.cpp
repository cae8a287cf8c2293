#include "character/acs/writer.h"

#include <algorithm>
#include <fstream>
#include <limits>
#include <string>

#include "character/acs/byte_io.h"
#include "character/acs/compression.h"
#include "character/acs/file_layout.h"
#include "character/acs/reader.h"

namespace corvel::acs {

namespace {

using detail::ByteWriter;
namespace layout = detail::layout;

struct Locator {
    std::uint32_t offset = 0, size = 0;
};

[[noreturn]] void refuse(const std::string& problem) { throw AcsError("cannot write the character: " + problem); }

template <typename Count>
Count countOf(std::size_t n, const std::string& what)
{
    if (n > std::numeric_limits<Count>::max())
        refuse(what + ": " + std::to_string(n) + " are more than the file can hold (" +
               std::to_string(std::numeric_limits<Count>::max()) + ")");
    return static_cast<Count>(n);
}

std::string upper(std::string_view name)
{
    std::string text(name);
    for (char& ch : text)
        if (ch >= 'a' && ch <= 'z') ch = static_cast<char>(ch - 'a' + 'A');
    return text;
}

class Writer {
public:
    Writer(const Character& c, const WriteOptions& options) : c_(c), options_(options) {}

    std::vector<std::uint8_t> write()
    {
        check();
        out_.bytes.assign(layout::headerSize, 0);
        std::vector<Locator> animations, images, sounds;
        for (const Animation& a : c_.animations) animations.push_back(record([&] { writeAnimation(a); }));
        for (const Image& image : c_.images) images.push_back(record([&] { writeImage(image); }));
        for (const auto& sound : c_.sounds) sounds.push_back(record([&] { out_.append(sound); }));

        const Locator animationDirectory = record([&] {
            out_.u32(static_cast<std::uint32_t>(animations.size()));
            for (std::size_t i = 0; i < animations.size(); ++i) {
                out_.string(c_.animations[i].name);
                locator(animations[i]);
            }
        });
        const auto directory = [&](const std::vector<Locator>& entries) {
            return record([&] {
                out_.u32(static_cast<std::uint32_t>(entries.size()));
                for (const Locator& l : entries) {
                    locator(l);
                    out_.u32(0); // checksum
                }
            });
        };
        const Locator imageDirectory = directory(images);
        const Locator soundDirectory = directory(sounds);
        std::size_t localizedAt = 0;
        const Locator info = record([&] { localizedAt = writeInfo(); });
        const Locator localized = record([&] { writeLocalizedInfo(); });
        out_.patch32(localizedAt, localized.offset);
        out_.patch32(localizedAt + 4, localized.size);

        out_.patch32(0, layout::signature);
        std::size_t at = 4;
        for (const Locator& l : {info, animationDirectory, imageDirectory, soundDirectory}) {
            out_.patch32(at, l.offset);
            out_.patch32(at + 4, l.size);
            at += 8;
        }
        return std::move(out_.bytes);
    }

private:
    template <typename Body>
    Locator record(Body body)
    {
        const std::size_t start = out_.size();
        body();
        const std::size_t end = out_.size();
        if (end > std::numeric_limits<std::uint32_t>::max()) refuse("the file would exceed 4 GiB");
        return {static_cast<std::uint32_t>(start), static_cast<std::uint32_t>(end - start)};
    }

    void locator(const Locator& l)
    {
        out_.u32(l.offset);
        out_.u32(l.size);
    }

    // Everything the reader would refuse is refused here, before a byte is written.
    void check() const
    {
        const ReadLimits limits;
        if (c_.width == 0 || c_.height == 0 || c_.width > limits.maxFrameSide || c_.height > limits.maxFrameSide)
            refuse("a frame size of " + std::to_string(c_.width) + " x " + std::to_string(c_.height));
        if (c_.palette.size() > 256) refuse("a palette of " + std::to_string(c_.palette.size()) + " colours");
        countOf<std::uint16_t>(c_.states.size(), "states");
        for (const State& s : c_.states) countOf<std::uint16_t>(s.animations.size(), "animations of state " + s.name);
        countOf<std::uint16_t>(c_.localizedInfo.size(), "localized entries");
        for (std::size_t i = 0; i < c_.images.size(); ++i) {
            const Image& image = c_.images[i];
            if (image.pixels.size() != std::size_t{image.width} * image.height)
                refuse("image " + std::to_string(i) + " has " + std::to_string(image.pixels.size()) +
                       " pixels for " + std::to_string(image.width) + " x " + std::to_string(image.height));
            if (layout::stride(image.width) * image.height > limits.maxImageBytes)
                refuse("image " + std::to_string(i) + " is too large");
        }
        for (const Animation& a : c_.animations) checkAnimation(a);
    }

    void checkAnimation(const Animation& a) const
    {
        const std::string what = "animation '" + a.name + "'";
        if (a.frames.empty()) refuse(what + " has no frames");
        countOf<std::uint16_t>(a.frames.size(), what + ": frames");
        if (static_cast<int>(a.transition) > 2) refuse(what + ": unknown transition");
        const auto frameExists = [&](long f) { return f >= 0 && static_cast<std::size_t>(f) < a.frames.size(); };
        for (std::size_t i = 0; i < a.frames.size(); ++i) {
            const Frame& f = a.frames[i];
            const std::string at = what + " frame " + std::to_string(i) + ": ";
            countOf<std::uint16_t>(f.images.size(), at + "images");
            countOf<std::uint8_t>(f.branches.size(), at + "branches");
            countOf<std::uint8_t>(f.mouths.size(), at + "mouth overlays");
            for (const FrameImage& image : f.images)
                if (image.image >= c_.images.size()) refuse(at + "image " + std::to_string(image.image) + " does not exist");
            if (f.sound < Frame::noSound || (f.sound >= 0 && static_cast<std::size_t>(f.sound) >= c_.sounds.size()))
                refuse(at + "sound " + std::to_string(f.sound) + " does not exist");
            if (f.exitFrame < Frame::exitContinues || (f.exitFrame >= 0 && !frameExists(f.exitFrame)))
                refuse(at + "exit frame " + std::to_string(f.exitFrame) + " does not exist");
            for (const Branch& b : f.branches)
                if (!frameExists(b.frame)) refuse(at + "branch target " + std::to_string(b.frame) + " does not exist");
            for (const MouthOverlay& m : f.mouths) {
                if (static_cast<int>(m.shape) >= mouthShapeCount) refuse(at + "unknown mouth shape");
                if (m.image >= c_.images.size()) refuse(at + "mouth image " + std::to_string(m.image) + " does not exist");
            }
        }
    }

    void writeAnimation(const Animation& a)
    {
        out_.string(upper(a.name));
        out_.u8(static_cast<std::uint8_t>(a.transition));
        out_.string(a.returnAnimation);
        out_.u16(static_cast<std::uint16_t>(a.frames.size()));
        for (const Frame& f : a.frames) {
            out_.u16(static_cast<std::uint16_t>(f.images.size()));
            for (const FrameImage& image : f.images) {
                out_.u32(image.image);
                out_.i16(image.x);
                out_.i16(image.y);
            }
            out_.i16(f.sound);
            out_.u16(f.duration);
            out_.i16(f.exitFrame);
            out_.u8(static_cast<std::uint8_t>(f.branches.size()));
            for (const Branch& b : f.branches) {
                out_.u16(b.frame);
                out_.u16(b.probability);
            }
            out_.u8(static_cast<std::uint8_t>(f.mouths.size()));
            for (const MouthOverlay& m : f.mouths) {
                out_.u8(static_cast<std::uint8_t>(m.shape));
                out_.u8(m.replacesFirstImage ? 1 : 0);
                out_.u16(m.image);
                out_.u8(0);
                out_.u8(m.regionData ? 1 : 0);
                out_.i16(m.x);
                out_.i16(m.y);
                out_.u16(m.centreX);
                out_.u16(m.centreY);
            }
            for (const MouthOverlay& m : f.mouths)
                if (m.regionData) {
                    out_.u32(countOf<std::uint32_t>(m.regionData->size(), "mouth region bytes"));
                    out_.append(*m.regionData);
                }
        }
    }

    void writePacked(const std::vector<std::uint8_t>& raw, bool sizeFirst)
    {
        // Images store {compressed flag, stored size, data}; regions {stored size or 0, size, data}.
        const bool pack = options_.compressImages;
        const std::vector<std::uint8_t> packed = pack ? compress(raw) : std::vector<std::uint8_t>();
        const auto& data = pack ? packed : raw;
        if (sizeFirst) {
            out_.u8(pack ? 1 : 0);
            out_.u32(static_cast<std::uint32_t>(data.size()));
        } else {
            out_.u32(pack ? static_cast<std::uint32_t>(data.size()) : 0);
            out_.u32(static_cast<std::uint32_t>(raw.size()));
        }
        out_.append(data);
    }

    void writeImage(const Image& image)
    {
        if (image.empty()) {
            out_.u8(0);
            return;
        }
        out_.u8(1);
        out_.u16(image.width);
        out_.u16(image.height);
        const std::size_t stride = layout::stride(image.width);
        std::vector<std::uint8_t> raster(stride * image.height, 0);
        for (std::size_t y = 0; y < image.height; ++y) // bottom row first
            std::copy_n(image.pixels.begin() + y * image.width, image.width,
                        raster.begin() + (image.height - 1 - y) * stride);
        writePacked(raster, true);
        if (image.region.empty()) {
            out_.u32(0);
            out_.u32(0);
            return;
        }
        writePacked(regionBytes(image.region), false);
    }

    static std::vector<std::uint8_t> regionBytes(const std::vector<RegionRect>& rects)
    {
        RegionRect bounds = rects.front();
        for (const RegionRect& r : rects) {
            bounds.left = std::min(bounds.left, r.left);
            bounds.top = std::min(bounds.top, r.top);
            bounds.right = std::max(bounds.right, r.right);
            bounds.bottom = std::max(bounds.bottom, r.bottom);
        }
        ByteWriter w;
        w.u32(layout::regionHeaderSize);
        w.u32(layout::regionKindRectangles);
        w.u32(static_cast<std::uint32_t>(rects.size()));
        w.u32(static_cast<std::uint32_t>(rects.size() * 16));
        const auto rect = [&](const RegionRect& r) {
            w.i32(r.left);
            w.i32(r.top);
            w.i32(r.right);
            w.i32(r.bottom);
        };
        rect(bounds);
        for (const RegionRect& r : rects) rect(r);
        return std::move(w.bytes);
    }

    // Returns where the localized table's locator is, to be filled in once it is written.
    std::size_t writeInfo()
    {
        out_.u16(layout::versionMinor);
        out_.u16(layout::versionMajor);
        const std::size_t localizedAt = out_.size();
        locator({});
        out_.guid(c_.id);
        out_.u16(c_.width);
        out_.u16(c_.height);
        out_.u8(c_.transparentIndex);
        // The "enabled" bits say whether the voice and balloon blocks follow.
        std::uint32_t flags = c_.styleFlags & ~(style::voiceEnabled | style::balloonEnabled);
        if (c_.voice) flags |= style::voiceEnabled;
        if (c_.balloon) flags |= style::balloonEnabled;
        out_.u32(flags);
        out_.u16(2); // animation set version 2.0
        out_.u16(0);
        if (c_.voice) {
            const Voice& v = *c_.voice;
            out_.guid(v.engine);
            out_.guid(v.mode);
            out_.u32(v.speed);
            out_.u16(v.pitch);
            out_.u8(v.details ? 1 : 0);
            if (v.details) {
                out_.u16(v.details->language);
                out_.string(v.details->dialect);
                out_.u16(static_cast<std::uint16_t>(v.details->gender));
                out_.u16(v.details->age);
                out_.string(v.details->style);
            }
        }
        if (c_.balloon) {
            const Balloon& b = *c_.balloon;
            out_.u8(b.lines);
            out_.u8(b.charsPerLine);
            for (const Rgb& colour : {b.text, b.background, b.border}) {
                out_.u8(colour.r);
                out_.u8(colour.g);
                out_.u8(colour.b);
                out_.u8(0);
            }
            out_.string(b.fontName);
            out_.i32(b.fontHeight);
            out_.u32(b.fontWeight);
            out_.u8(b.italic ? 1 : 0);
            out_.u8(0);
        }
        out_.u32(static_cast<std::uint32_t>(c_.palette.size()));
        for (const Rgb& colour : c_.palette) {
            out_.u8(colour.b);
            out_.u8(colour.g);
            out_.u8(colour.r);
            out_.u8(0);
        }
        out_.u8(c_.trayIcon ? 1 : 0);
        if (c_.trayIcon) {
            for (const auto* bitmap : {&c_.trayIcon->mask, &c_.trayIcon->colour}) {
                out_.u32(countOf<std::uint32_t>(bitmap->size(), "tray icon bytes"));
                out_.append(*bitmap);
            }
        }
        out_.u16(static_cast<std::uint16_t>(c_.states.size()));
        for (const State& s : c_.states) {
            out_.string(s.name);
            out_.u16(static_cast<std::uint16_t>(s.animations.size()));
            for (const std::string& name : s.animations) out_.string(name);
        }
        return localizedAt;
    }

    void writeLocalizedInfo()
    {
        out_.u16(static_cast<std::uint16_t>(c_.localizedInfo.size()));
        for (const LocalizedInfo& e : c_.localizedInfo) {
            out_.u16(e.language);
            out_.string(e.name);
            out_.string(e.description);
            out_.string(e.extraData);
        }
    }

    const Character& c_;
    const WriteOptions& options_;
    ByteWriter out_;
};

} // namespace

std::vector<std::uint8_t> writeCharacter(const Character& character, const WriteOptions& options)
{
    return Writer(character, options).write();
}

void writeCharacterFile(const Character& character, const std::filesystem::path& path, const WriteOptions& options)
{
    const std::vector<std::uint8_t> bytes = writeCharacter(character, options);
    std::filesystem::path scratch = path;
    scratch += ".part";
    {
        std::ofstream out(scratch, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        if (!out.flush()) throw AcsError("cannot write " + path.string());
    }
    std::error_code error;
    std::filesystem::rename(scratch, path, error);
    if (error) throw AcsError("cannot write " + path.string() + ": " + error.message());
}

std::vector<RegionRect> regionOf(const Image& image, std::uint8_t transparentIndex)
{
    std::vector<RegionRect> rects;
    std::vector<std::pair<int, int>> band, row; // runs [left, right) of the band and this row
    int bandTop = 0;
    const auto closeBand = [&](int bottom) {
        for (const auto& [left, right] : band) rects.push_back({left, bandTop, right, bottom});
    };
    for (int y = 0; y < image.height; ++y) {
        row.clear();
        for (int x = 0; x < image.width;) {
            if (image.at(x, y) == transparentIndex) {
                ++x;
                continue;
            }
            const int left = x;
            while (x < image.width && image.at(x, y) != transparentIndex) ++x;
            row.emplace_back(left, x);
        }
        if (row != band) {
            closeBand(y);
            band = row;
            bandTop = y;
        }
    }
    closeBand(image.height);
    return rects;
}

} // namespace corvel::acs
