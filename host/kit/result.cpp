#include "result.h"

#include <cstring>
#include <limits>

namespace {

// Room for the fields of a typical tagged file from the start.
constexpr size_t kTypicalItems = 32;
constexpr size_t kTypicalBytes = 2048;

template <typename Value>
char* Put(char* out, Value value) {
    std::memcpy(out, &value, sizeof value);
    return out + sizeof value;
}

char* Put(char* out, const char* bytes, size_t length) {
    if (length != 0) std::memcpy(out, bytes, length);
    return out + length;
}

// The packed form's fixed parts: count, status, type, flags and the type
// name's length; per field kind, ID3v1 flag, identifier length, a zero
// byte, tag, number, description length and text length.
constexpr size_t kPackedHeaderBytes = 4 + 4 + 2 + 1 + 1;
constexpr size_t kPackedFieldBytes = 1 + 1 + 1 + 1 + 4 + 4 + 4 + 4;

bool FitsU32(size_t length) { return length < std::numeric_limits<uint32_t>::max(); }

}  // namespace

kz_host_result::kz_host_result() {
    fields.reserve(kTypicalItems);
    itemPlaces_.reserve(kTypicalItems);
    bytes_.reserve(kTypicalBytes);
}

size_t kz_host_result::AddText(const char* text, size_t length) {
    const size_t at = bytes_.size();
    bytes_.append(text, length);
    bytes_.push_back('\0');
    return at;
}

size_t kz_host_result::AddCodes(const uint32_t* codes, size_t count) {
    if (codes == nullptr) return kNone;
    const size_t at = codes_.size();
    codes_.insert(codes_.end(), codes, codes + count);
    return at;
}

int kz_host_result::Collect(const kz_host_field* field, void* user) {
    auto* self = static_cast<kz_host_result*>(user);
    ItemPlace place{};
    place.ident = self->AddText(field->ident, std::strlen(field->ident));
    place.value = {self->AddText(field->text, field->text_len),
                   self->AddCodes(field->codes, field->code_count)};
    place.firstString = self->strings_.size();
    place.hasDescription = field->description != nullptr;
    for (size_t i = 0; i < field->string_count; ++i) {
        const kz_host_string& string = field->strings[i];
        self->stringPlaces_.push_back({self->AddText(string.text, string.text_len),
                                       self->AddCodes(string.codes, string.code_count)});
        self->strings_.push_back(string);
    }
    self->fields.push_back(*field);
    self->itemPlaces_.push_back(place);
    return 0;
}

void kz_host_result::Seal(const kz_host_file_info& fileInfo) {
    info = fileInfo;
    const auto text = [this](size_t at) { return bytes_.data() + at; };
    const auto codes = [this](size_t at) { return at == kNone ? nullptr : codes_.data() + at; };
    for (size_t i = 0; i < strings_.size(); ++i) {
        strings_[i].text = text(stringPlaces_[i].text);
        strings_[i].codes = codes(stringPlaces_[i].codes);
    }
    for (size_t i = 0; i < fields.size(); ++i) {
        const ItemPlace& place = itemPlaces_[i];
        kz_host_field& field = fields[i];
        field.ident = text(place.ident);
        field.text = text(place.value.text);
        field.codes = codes(place.value.codes);
        field.strings = field.string_count != 0 ? strings_.data() + place.firstString : nullptr;
        // The description is the first string's text.
        field.description = place.hasDescription ? field.strings[0].text : nullptr;
        field.description_len = place.hasDescription ? field.strings[0].text_len : 0;
    }
}

void kz_host_result::Pack() const {
    const size_t typeLength = strnlen(info.type_name, sizeof info.type_name);
    size_t size = kPackedHeaderBytes + typeLength;
    for (const kz_host_field& field : fields) {
        if (!FitsU32(field.text_len) || !FitsU32(field.description_len)) return;
        size += kPackedFieldBytes + std::strlen(field.ident) + field.description_len + field.text_len;
    }
    std::string out(size, '\0');
    char* at = out.data();
    at = Put(at, static_cast<uint32_t>(fields.size()));
    at = Put(at, info.open_status);
    at = Put(at, info.file_type);
    at = Put(at, static_cast<uint8_t>((info.end_seen ? 1 : 0) | (info.truncated ? 2 : 0) |
                                      (info.detected ? 4 : 0) | (info.audio ? 8 : 0)));
    at = Put(at, static_cast<uint8_t>(typeLength));
    at = Put(at, info.type_name, typeLength);
    for (const kz_host_field& field : fields) {
        const size_t identLength = std::strlen(field.ident);
        at = Put(at, static_cast<uint8_t>(field.kind));
        at = Put(at, static_cast<uint8_t>(field.id3v1));
        at = Put(at, static_cast<uint8_t>(identLength));
        at = Put(at, uint8_t{0});
        at = Put(at, field.tag);
        at = Put(at, field.number);
        at = Put(at, field.description != nullptr ? static_cast<uint32_t>(field.description_len)
                                                  : KZ_HOST_PACKED_NO_DESCRIPTION);
        at = Put(at, static_cast<uint32_t>(field.text_len));
        at = Put(at, field.ident, identLength);
        if (field.description != nullptr) at = Put(at, field.description, field.description_len);
        at = Put(at, field.text, field.text_len);
    }
    packed_.swap(out);
    packedValid_ = true;
}

const std::string* kz_host_result::Packed() const {
    try {
        std::call_once(packOnce_, [this] { Pack(); });
    } catch (...) {
        return nullptr;
    }
    return packedValid_ ? &packed_ : nullptr;
}
