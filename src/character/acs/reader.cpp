#include "character/acs/reader.h"

#include <algorithm>
#include <fstream>
#include <string>

#include "character/acs/byte_io.h"
#include "character/acs/compression.h"
#include "character/acs/file_layout.h"

namespace corvel::acs {

namespace {

using detail::ByteReader;
using detail::hex;
namespace layout = detail::layout;

struct Locator {
    std::uint32_t offset = 0, size = 0;
};

std::string inQuotes(std::string_view name) { return "'" + std::string(name) + "'"; }

class Parser {
public:
    Parser(std::span<const std::uint8_t> file, const ReadLimits& limits) : file_(file), limits_(limits) {}

    Character parse()
    {
        checkSignature();
        ByteReader header(file_.first(std::min(file_.size(), layout::headerSize)), 0, "header");
        header.u32();
        const Locator info = locator(header, "the character info block");
        const Locator animations = locator(header, "the animation directory");
        const Locator images = locator(header, "the image directory");
        const Locator sounds = locator(header, "the sound directory");

        Character c;
        const Locator localized = readInfo(info, c);
        c.localizedInfo = readLocalizedInfo(localized);
        c.images = readImages(images);
        c.sounds = readSounds(sounds);
        c.animations = readAnimations(animations, c);
        return c;
    }

private:
    void checkSignature() const
    {
        if (file_.size() >= sizeof layout::compoundFileSignature &&
            std::equal(std::begin(layout::compoundFileSignature), std::end(layout::compoundFileSignature),
                       file_.begin()))
            throw AcsError("this is a version 1.5 character (a compound document); only version 2 "
                           "characters (.acs) can be read");
        if (file_.size() < 4)
            throw AcsError("not a character file: only " + std::to_string(file_.size()) + " bytes long");
        const std::uint32_t signature = file_[0] | file_[1] << 8 | file_[2] << 16 |
                                        static_cast<std::uint32_t>(file_[3]) << 24;
        if (signature == layout::webSignature)
            throw AcsError("this is a web-format character (.acf, its animations in separate .aca "
                           "files); only single-file characters (.acs) can be read");
        if (signature != layout::signature)
            throw AcsError("not a character file: it starts with " + hex(signature) + ", not " +
                           hex(layout::signature));
    }

    // A locator whose block lies inside the file.
    Locator locator(ByteReader& r, std::string_view what) const
    {
        Locator l;
        l.offset = r.u32();
        l.size = r.u32();
        if (std::uint64_t{l.offset} + l.size > file_.size())
            r.fail(std::string(what) + " (at " + hex(l.offset) + ", " + std::to_string(l.size) +
                   " bytes) lies past the end of the " + std::to_string(file_.size()) + "-byte file");
        return l;
    }

    ByteReader block(Locator l, std::string what) const
    {
        return ByteReader(file_.subspan(l.offset, l.size), l.offset, std::move(what));
    }

    Locator readInfo(Locator where, Character& c)
    {
        ByteReader r = block(where, "character info");
        const std::uint16_t minor = r.u16(), major = r.u16();
        const std::uint32_t version = std::uint32_t{major} << 16 | minor;
        if (std::ranges::find(layout::knownVersions, version) == std::end(layout::knownVersions))
            r.fail("unknown version " + std::to_string(major) + "." + std::to_string(minor) +
                   " (the file is damaged or not a character)");
        const Locator localized = locator(r, "the localized info table");
        c.id = r.guid();
        c.width = r.u16();
        c.height = r.u16();
        if (c.width == 0 || c.height == 0 || c.width > limits_.maxFrameSide || c.height > limits_.maxFrameSide)
            r.fail("a frame size of " + std::to_string(c.width) + " x " + std::to_string(c.height) +
                   " pixels is not believable");
        c.transparentIndex = r.u8();
        c.styleFlags = r.u32();
        r.u16(); // animation set version, 2.0
        r.u16();
        if (c.styleFlags & style::voiceEnabled) c.voice = readVoice(r);
        if (c.styleFlags & style::balloonEnabled) c.balloon = readBalloon(r);

        const std::uint32_t colours = r.u32();
        if (colours > 256) r.fail("a palette of " + std::to_string(colours) + " colours (at most 256)");
        for (std::uint32_t i = 0; i < colours; ++i) {
            const auto bgr = r.take(4);
            c.palette.push_back({bgr[2], bgr[1], bgr[0]});
        }
        if (r.u8() != 0) {
            TrayIcon icon;
            icon.mask = r.blob(r.u32());
            icon.colour = r.blob(r.u32());
            c.trayIcon = std::move(icon);
        }
        const std::size_t states = r.count(r.u16(), 6, "states");
        for (std::size_t i = 0; i < states; ++i) {
            State s;
            s.name = r.string();
            const std::size_t names = r.count(r.u16(), 4, "animation names in state " + inQuotes(s.name));
            for (std::size_t k = 0; k < names; ++k) s.animations.push_back(r.string());
            c.states.push_back(std::move(s));
        }
        return localized;
    }

    static Voice readVoice(ByteReader& r)
    {
        Voice v;
        v.engine = r.guid();
        v.mode = r.guid();
        v.speed = r.u32();
        v.pitch = r.u16();
        if (r.u8() != 0) {
            Voice::Details d;
            d.language = r.u16();
            d.dialect = r.string();
            d.gender = static_cast<Gender>(r.u16());
            d.age = r.u16();
            d.style = r.string();
            v.details = std::move(d);
        }
        return v;
    }

    static Balloon readBalloon(ByteReader& r)
    {
        Balloon b;
        b.lines = r.u8();
        b.charsPerLine = r.u8();
        for (Rgb* colour : {&b.text, &b.background, &b.border}) {
            const auto rgb0 = r.take(4);
            *colour = {rgb0[0], rgb0[1], rgb0[2]};
        }
        b.fontName = r.string();
        b.fontHeight = r.i32();
        b.fontWeight = r.u32();
        b.italic = r.u8() != 0;
        r.u8(); // unused
        return b;
    }

    std::vector<LocalizedInfo> readLocalizedInfo(Locator where) const
    {
        std::vector<LocalizedInfo> entries;
        if (where.size == 0) return entries;
        ByteReader r = block(where, "localized info");
        const std::size_t count = r.count(r.u16(), 14, "entries");
        for (std::size_t i = 0; i < count; ++i) {
            LocalizedInfo e;
            e.language = r.u16();
            e.name = r.string();
            e.description = r.string();
            e.extraData = r.string();
            entries.push_back(std::move(e));
        }
        return entries;
    }

    // Directories of images and sounds: a count, then {offset, size, checksum} each.
    std::vector<Locator> readDirectory(Locator where, std::string_view item, std::string_view items) const
    {
        ByteReader r = block(where, std::string(item) + " directory");
        const std::size_t count = r.count(r.u32(), 12, items);
        std::vector<Locator> entries;
        entries.reserve(count);
        std::uint64_t total = 0;
        for (std::size_t i = 0; i < count; ++i) {
            entries.push_back(locator(r, std::string(item) + " " + std::to_string(i)));
            r.u32(); // checksum, of no known kind
            total += entries.back().size;
        }
        checkNoOverlap(r, total, items);
        return entries;
    }

    // Entries may not share the file's bytes many times over: that would let a small file
    // make the reader do unbounded work.
    void checkNoOverlap(const ByteReader& r, std::uint64_t total, std::string_view items) const
    {
        if (total > file_.size())
            r.fail("the " + std::string(items) + " add up to " + std::to_string(total) +
                   " bytes, more than the whole file: entries overlap");
    }

    std::vector<Image> readImages(Locator where)
    {
        std::vector<Image> images;
        const auto entries = readDirectory(where, "image", "images");
        images.reserve(entries.size());
        for (std::size_t i = 0; i < entries.size(); ++i)
            images.push_back(readImage(block(entries[i], "image " + std::to_string(i))));
        return images;
    }

    void spend(const ByteReader& r, std::uint64_t bytes)
    {
        if (bytes > limits_.maxImageBytes)
            r.fail("claims " + std::to_string(bytes) + " bytes of pixels, more than an image may have");
        decoded_ += bytes;
        if (decoded_ > limits_.maxDecodedBytes)
            r.fail("the images decode to more than " + std::to_string(limits_.maxDecodedBytes) + " bytes in all");
    }

    std::vector<std::uint8_t> unpack(ByteReader& r, std::span<const std::uint8_t> stream, std::size_t size)
    {
        try {
            return decompress(stream, size);
        } catch (const AcsError& e) {
            r.fail(e.what());
        }
    }

    Image readImage(ByteReader r)
    {
        Image image;
        if (r.u8() == 0) return image; // the empty image
        image.width = r.u16();
        image.height = r.u16();
        const bool compressed = r.u8() != 0;
        const std::uint32_t stored = r.u32();
        const std::size_t stride = layout::stride(image.width);
        const std::uint64_t rasterBytes = std::uint64_t{stride} * image.height;
        spend(r, rasterBytes);
        const auto data = r.take(stored);
        std::vector<std::uint8_t> unpacked;
        std::span<const std::uint8_t> raster = data;
        if (compressed) {
            unpacked = unpack(r, data, rasterBytes);
            raster = unpacked;
        } else if (stored < rasterBytes) {
            r.fail("holds " + std::to_string(stored) + " bytes of pixels, " + std::to_string(rasterBytes) +
                   " needed for " + std::to_string(image.width) + " x " + std::to_string(image.height));
        }
        image.pixels.resize(std::size_t{image.width} * image.height);
        for (std::size_t y = 0; y < image.height; ++y) // stored bottom row first
            std::copy_n(raster.begin() + (image.height - 1 - y) * stride, image.width,
                        image.pixels.begin() + y * image.width);

        const std::uint32_t regionStored = r.u32(), regionSize = r.u32();
        if (regionStored == 0 && regionSize == 0) return image.empty() ? Image{} : image;
        // A region needs at most one rectangle per run of pixels in a row.
        const std::uint64_t largest = layout::regionHeaderSize +
                                      std::uint64_t{16} * image.height * (image.width / 2 + 1);
        if (regionSize > largest)
            r.fail("a region of " + std::to_string(regionSize) + " bytes is larger than the image can need");
        spend(r, regionSize);
        const std::vector<std::uint8_t> region =
            regionStored != 0 ? unpack(r, r.take(regionStored), regionSize) : r.blob(regionSize);
        image.region = readRegion(ByteReader(region, 0, r.what() + " region"));
        return image.empty() ? Image{} : image; // no pixels: the empty image, whatever its sizes
    }

    static std::vector<RegionRect> readRegion(ByteReader r)
    {
        if (r.u32() != layout::regionHeaderSize) r.fail("the region header is damaged");
        r.u32(); // kind: rectangles
        const std::uint32_t claimed = r.u32();
        r.take(4 + 16); // buffer size (often wrong) and bounds
        const std::size_t count = r.count(claimed, 16, "rectangles");
        std::vector<RegionRect> rects(count);
        for (RegionRect& rect : rects) {
            rect.left = r.i32();
            rect.top = r.i32();
            rect.right = r.i32();
            rect.bottom = r.i32();
        }
        return rects;
    }

    std::vector<std::vector<std::uint8_t>> readSounds(Locator where) const
    {
        std::vector<std::vector<std::uint8_t>> sounds;
        for (const Locator& l : readDirectory(where, "sound", "sounds")) {
            const auto bytes = file_.subspan(l.offset, l.size);
            sounds.emplace_back(bytes.begin(), bytes.end());
        }
        return sounds;
    }

    std::vector<Animation> readAnimations(Locator where, const Character& c) const
    {
        ByteReader r = block(where, "animation directory");
        const std::size_t count = r.count(r.u32(), 12, "animations");
        std::vector<std::pair<std::string, Locator>> entries;
        entries.reserve(count);
        std::uint64_t total = 0;
        for (std::size_t i = 0; i < count; ++i) {
            std::string name = r.string();
            const Locator l = locator(r, "animation " + inQuotes(name));
            total += l.size;
            entries.emplace_back(std::move(name), l);
        }
        checkNoOverlap(r, total, "animations");

        std::vector<Animation> animations;
        animations.reserve(count);
        for (auto& [name, l] : entries)
            animations.push_back(readAnimation(block(l, "animation " + inQuotes(name)), std::move(name), c));
        return animations;
    }

    static Animation readAnimation(ByteReader r, std::string name, const Character& c)
    {
        Animation a;
        a.name = std::move(name);
        r.string(); // the name again, in capitals
        const std::uint8_t transition = r.u8();
        if (transition > 2) r.fail("unknown transition type " + std::to_string(transition));
        a.transition = static_cast<Transition>(transition);
        a.returnAnimation = r.string();
        const std::size_t frames = r.count(r.u16(), 10, "frames");
        if (frames == 0) r.fail("has no frames");
        a.frames.resize(frames);
        for (std::size_t i = 0; i < frames; ++i) readFrame(r, a.frames[i], "frame " + std::to_string(i) + ": ", c, frames);
        return a;
    }

    static void readFrame(ByteReader& r, Frame& f, const std::string& at, const Character& c, std::size_t frames)
    {
        const auto checkImage = [&](std::uint32_t image) {
            if (image >= c.images.size())
                r.fail(at + "image " + std::to_string(image) + " does not exist (the file has " +
                       std::to_string(c.images.size()) + " images)");
        };
        const auto checkFrame = [&](long frame, std::string_view what) {
            if (frame < 0 || static_cast<std::size_t>(frame) >= frames)
                r.fail(at + std::string(what) + " " + std::to_string(frame) + " does not exist (the animation has " +
                       std::to_string(frames) + " frames)");
        };

        f.images.resize(r.count(r.u16(), 8, "images"));
        for (FrameImage& image : f.images) {
            image.image = r.u32();
            checkImage(image.image);
            image.x = r.i16();
            image.y = r.i16();
        }
        f.sound = r.i16();
        if (f.sound < Frame::noSound || (f.sound >= 0 && static_cast<std::size_t>(f.sound) >= c.sounds.size()))
            r.fail(at + "sound " + std::to_string(f.sound) + " does not exist (the file has " +
                   std::to_string(c.sounds.size()) + " sounds)");
        f.duration = r.u16();
        f.exitFrame = r.i16();
        if (f.exitFrame >= 0) checkFrame(f.exitFrame, "exit frame");
        else if (f.exitFrame < Frame::exitContinues) r.fail(at + "unknown exit value " + std::to_string(f.exitFrame));
        f.branches.resize(r.count(r.u8(), 4, "branches"));
        for (Branch& b : f.branches) {
            b.frame = r.u16();
            checkFrame(b.frame, "branch target");
            b.probability = r.u16();
        }
        f.mouths.resize(r.count(r.u8(), layout::mouthOverlaySize, "mouth overlays"));
        std::vector<bool> hasRegion;
        for (MouthOverlay& m : f.mouths) {
            const std::uint8_t shape = r.u8();
            if (shape >= mouthShapeCount) r.fail(at + "unknown mouth shape " + std::to_string(shape));
            m.shape = static_cast<MouthShape>(shape);
            m.replacesFirstImage = r.u8() != 0;
            m.image = r.u16();
            checkImage(m.image);
            r.u8();
            hasRegion.push_back(r.u8() != 0);
            m.x = r.i16();
            m.y = r.i16();
            m.centreX = r.u16();
            m.centreY = r.u16();
        }
        for (std::size_t i = 0; i < f.mouths.size(); ++i)
            if (hasRegion[i]) f.mouths[i].regionData = r.blob(r.u32());
    }

    std::span<const std::uint8_t> file_;
    const ReadLimits& limits_;
    std::uint64_t decoded_ = 0;
};

} // namespace

Character readCharacter(std::span<const std::uint8_t> file, const ReadLimits& limits)
{
    if (file.size() > limits.maxFileBytes)
        throw AcsError("the file is " + std::to_string(file.size()) + " bytes, too large for a character");
    return Parser(file, limits).parse();
}

Character readCharacterFile(const std::filesystem::path& path, const ReadLimits& limits)
{
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(path, error);
    if (error) throw AcsError("cannot be read: " + error.message());
    if (size > limits.maxFileBytes)
        throw AcsError("the file is " + std::to_string(size) + " bytes, too large for a character");
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(size));
    std::ifstream in(path, std::ios::binary);
    if (!in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size())))
        throw AcsError("cannot be read");
    return readCharacter(bytes, limits);
}

} // namespace corvel::acs
