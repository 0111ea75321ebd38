#include "result.h"

#include <cstring>
#include <limits>

int kz_host_result::Collect(const kz_host_field* field, void* user) {
    auto* self = static_cast<kz_host_result*>(user);
    OwnedItem item{};
    item.field = *field;
    item.ident = field->ident;
    item.text.assign(field->text, field->text_len);
    item.hasCodes = field->codes != nullptr;
    if (item.hasCodes) item.codes.assign(field->codes, field->codes + field->code_count);
    item.firstString = self->ownedStrings_.size();
    item.stringCount = field->string_count;
    item.hasDescription = field->description != nullptr;
    for (size_t i = 0; i < field->string_count; ++i) {
        const kz_host_string& string = field->strings[i];
        OwnedString owned{string.tag, string.offset, std::string(string.text, string.text_len),
                          {}, string.codes != nullptr};
        if (owned.hasCodes) owned.codes.assign(string.codes, string.codes + string.code_count);
        self->ownedStrings_.push_back(std::move(owned));
    }
    self->items_.push_back(std::move(item));
    return 0;
}

void kz_host_result::Seal(const kz_host_file_info& fileInfo) {
    info = fileInfo;
    strings_.resize(ownedStrings_.size());
    for (size_t i = 0; i < ownedStrings_.size(); ++i) {
        const OwnedString& owned = ownedStrings_[i];
        strings_[i] = kz_host_string{owned.tag,
                                     owned.offset,
                                     owned.text.c_str(),
                                     owned.text.size(),
                                     owned.hasCodes ? owned.codes.data() : nullptr,
                                     owned.codes.size()};
    }
    fields.resize(items_.size());
    for (size_t i = 0; i < items_.size(); ++i) {
        const OwnedItem& item = items_[i];
        kz_host_field& field = fields[i];
        field = item.field;
        field.ident = item.ident.c_str();
        field.text = item.text.c_str();
        field.text_len = item.text.size();
        field.codes = item.hasCodes ? item.codes.data() : nullptr;
        field.code_count = item.codes.size();
        field.strings = strings_.data() + item.firstString;
        field.string_count = item.stringCount;
        // The description is the first string's text.
        field.description = item.hasDescription ? field.strings[0].text : nullptr;
        field.description_len = item.hasDescription ? field.strings[0].text_len : 0;
    }
}

namespace {

template <typename Value>
void Put(std::string& out, Value value) {
    char bytes[sizeof value];
    std::memcpy(bytes, &value, sizeof value);
    out.append(bytes, sizeof bytes);
}

bool FitsU32(size_t length) { return length < std::numeric_limits<uint32_t>::max(); }

}  // namespace

void kz_host_result::Pack() const {
    std::string out;
    const size_t typeLength = strnlen(info.type_name, sizeof info.type_name);
    Put(out, static_cast<uint32_t>(fields.size()));
    Put(out, info.open_status);
    Put(out, info.file_type);
    Put(out, static_cast<uint8_t>((info.end_seen ? 1 : 0) | (info.truncated ? 2 : 0) |
                                  (info.detected ? 4 : 0)));
    Put(out, static_cast<uint8_t>(typeLength));
    out.append(info.type_name, typeLength);
    for (const kz_host_field& field : fields) {
        const size_t identLength = std::strlen(field.ident);
        if (!FitsU32(field.text_len) || !FitsU32(field.description_len)) return;
        Put(out, static_cast<uint8_t>(field.kind));
        Put(out, static_cast<uint8_t>(field.id3v1));
        Put(out, static_cast<uint8_t>(identLength));
        Put(out, uint8_t{0});
        Put(out, field.tag);
        Put(out, field.number);
        Put(out, field.description != nullptr ? static_cast<uint32_t>(field.description_len)
                                              : KZ_HOST_PACKED_NO_DESCRIPTION);
        Put(out, static_cast<uint32_t>(field.text_len));
        out.append(field.ident, identLength);
        if (field.description != nullptr) out.append(field.description, field.description_len);
        out.append(field.text, field.text_len);
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
