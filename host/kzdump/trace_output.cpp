// The trace: every call the module makes into the host, one a line.
#include "render.h"

namespace kzdump {

namespace {

// The name of a routine call, its arguments in decimal or hexadecimal.
struct Hex {
    uint32_t value;
    int digits;
};
void Append(std::string& out, const char* text) { out += text; }
void Append(std::string& out, uint32_t number) { AppendNumber(number, out); }
void Append(std::string& out, Hex hex) {
    out += "0x";
    AppendHex(hex.value, hex.digits, out);
}
template <typename... Pieces>
void Line(std::string& out, const Pieces&... pieces) {
    (Append(out, pieces), ...);
    out.push_back('\n');
}

}  // namespace

void RenderTraceCall(std::string_view path, const kz_host_call& call, Out& out) {
    std::string& text = out.text;
    const uint32_t a = call.args[0];
    const uint32_t b = call.args[1];
    const uint32_t c = call.args[2];
    switch (call.routine) {
        case KZ_HOST_CALL_OPENED:
            text += "# ";
            AppendPrintable(path, text);
            text += "\n# ";
            text += call.name;
            text += " = ";
            AppendNumber(static_cast<int32_t>(a), text);
            text += ", type \"";
            AppendPrintable(call.type_name, text);
            text += "\"\n";
            break;
        case KZ_HOST_CALL_CHAR: Line(text, call.name, "(", Hex{a, 4}, ")"); break;
        case KZ_HOST_CALL_SPECIAL: Line(text, call.name, "(", a, ")"); break;
        case KZ_HOST_CALL_BREAK: Line(text, call.name, "(", a, ", ", b, ") = ", call.result); break;
        case KZ_HOST_CALL_START_SECTION: Line(text, call.name, "(", a, ", ", b, ", ", c, ")"); break;
        case KZ_HOST_CALL_FAILURE: Line(text, call.name, "(", a, ")"); break;
        case KZ_HOST_CALL_BEGIN_TAG:
            if (call.has_descriptor) {
                Line(text, call.name, "(", Hex{a, 8}, ", ", b, ", {", c, "})");
            } else {
                Line(text, call.name, "(", Hex{a, 8}, ", ", b, ", null)");
            }
            break;
        case KZ_HOST_CALL_END_TAG: Line(text, call.name, "(", Hex{a, 8}, ", ", b, ")"); break;
        case KZ_HOST_CALL_CHARSET: Line(text, call.name, "(", Hex{a, 8}, ")"); break;
        case KZ_HOST_CALL_SECTION_FLAGS: Line(text, call.name, "(", Hex{a, 4}, ")"); break;
        default: break;
    }
    out.Pause();
}

}  // namespace kzdump
