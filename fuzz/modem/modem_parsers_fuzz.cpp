// libFuzzer target for everything the modem driver reads from the port: the byte stream with
// its <DLE> codes (cut into reads at the fuzzer's choice), result lines, codec lists and caller
// ID. Nothing the port sends may crash, hang or read out of bounds.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "telephony/modem/caller_id_parser.h"
#include "telephony/modem/modem_stream.h"
#include "telephony/modem/responses.h"

namespace {

using namespace corvel::modem;

class Reader final : public ModemStream::Handler {
public:
    ModemStream stream{*this};
    CallerIdParser callerId;
    std::vector<VoiceCompression> offered;
    std::string heard; // everything handed on, in order: must not depend on how reads were cut

    void line(std::string_view text) override
    {
        heard += "L" + std::string(text) + "\n";
        const LineKind kind = classify(text);
        if (kind == LineKind::Connect) stream.setMode(ModemStream::Mode::Receive);
        callerId.feed(text);
        if (auto compression = parseCompression(text)) offered.push_back(*compression);
        (void)offersVoiceClass(text);
        (void)offersExtensionEvents(text);
        (void)chipsetFamily({std::string(text)}, offered.empty());
    }
    void event(char code) override
    {
        (void)isKeyCode(code);
        heard += "E";
        heard += code;
    }
    void audio(std::span<const std::uint8_t> bytes) override { heard.append(bytes.begin(), bytes.end()); }
    void endOfData() override { heard += "X"; }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) return 0;
    // The same bytes read whole and cut into reads of the first byte's choosing: what comes
    // out must be the same, a pair or a CR LF split between two reads included.
    Reader whole, cut;
    const std::size_t chunk = 1 + data[0] % 64;
    std::span<const std::uint8_t> rest(data + 1, size - 1);
    whole.stream.feed(rest);
    while (!rest.empty()) {
        const std::size_t n = std::min(chunk, rest.size());
        cut.stream.feed(rest.first(n));
        rest = rest.subspan(n);
    }
    if (whole.heard != cut.heard) __builtin_trap();
    Reader& reader = cut;
    (void)chooseCodec(reader.offered);
    const CallerIdentity& who = reader.callerId.identity();
    if (who.number.size() > CallerIdParser::maxValue || who.name.size() > CallerIdParser::maxValue) __builtin_trap();
    return 0;
}
