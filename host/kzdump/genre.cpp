#include "genre.h"

#include <charconv>

namespace kzdump {

namespace {

// 0 to 79: the genres of the ID3v1 definition; 80 to 191: the extension
// that tagging tools share.
constexpr const char* kGenres[] = {
    "Blues", "Classic Rock", "Country", "Dance", "Disco", "Funk", "Grunge", "Hip-Hop", "Jazz",
    "Metal", "New Age", "Oldies", "Other", "Pop", "R&B", "Rap", "Reggae", "Rock", "Techno",
    "Industrial", "Alternative", "Ska", "Death Metal", "Pranks", "Soundtrack", "Euro-Techno",
    "Ambient", "Trip-Hop", "Vocal", "Jazz+Funk", "Fusion", "Trance", "Classical", "Instrumental",
    "Acid", "House", "Game", "Sound Clip", "Gospel", "Noise", "AlternRock", "Bass", "Soul",
    "Punk", "Space", "Meditative", "Instrumental Pop", "Instrumental Rock", "Ethnic", "Gothic",
    "Darkwave", "Techno-Industrial", "Electronic", "Pop-Folk", "Eurodance", "Dream",
    "Southern Rock", "Comedy", "Cult", "Gangsta", "Top 40", "Christian Rap", "Pop/Funk", "Jungle",
    "Native American", "Cabaret", "New Wave", "Psychedelic", "Rave", "Showtunes", "Trailer",
    "Lo-Fi", "Tribal", "Acid Punk", "Acid Jazz", "Polka", "Retro", "Musical", "Rock & Roll",
    "Hard Rock",
    // 80
    "Folk", "Folk-Rock", "National Folk", "Swing", "Fast Fusion", "Bebop", "Latin", "Revival",
    "Celtic", "Bluegrass", "Avantgarde", "Gothic Rock", "Progressive Rock", "Psychedelic Rock",
    "Symphonic Rock", "Slow Rock", "Big Band", "Chorus", "Easy Listening", "Acoustic", "Humour",
    "Speech", "Chanson", "Opera", "Chamber Music", "Sonata", "Symphony", "Booty Bass", "Primus",
    "Porn Groove", "Satire", "Slow Jam", "Club", "Tango", "Samba", "Folklore", "Ballad",
    "Power Ballad", "Rhythmic Soul", "Freestyle", "Duet", "Punk Rock", "Drum Solo", "A Cappella",
    "Euro-House", "Dance Hall", "Goa", "Drum & Bass", "Club-House", "Hardcore Techno", "Terror",
    "Indie", "BritPop", "Negerpunk", "Polsk Punk", "Beat", "Christian Gangsta Rap",
    "Heavy Metal", "Black Metal", "Crossover", "Contemporary Christian", "Christian Rock",
    "Merengue", "Salsa", "Thrash Metal", "Anime", "Jpop", "Synthpop",
    // 148
    "Abstract", "Art Rock", "Baroque", "Bhangra", "Big Beat", "Breakbeat", "Chillout",
    "Downtempo", "Dub", "EBM", "Eclectic", "Electro", "Electroclash", "Emo", "Experimental",
    "Garage", "Global", "IDM", "Illbient", "Industro-Goth", "Jam Band", "Krautrock", "Leftfield",
    "Lounge", "Math Rock", "New Romantic", "Nu-Breakz", "Post-Punk", "Post-Rock", "Psytrance",
    "Shoegaze", "Space Rock", "Trop Rock", "World Music", "Neoclassical", "Audiobook",
    "Audio Theatre", "Neue Deutsche Welle", "Podcast", "Indie Rock", "G-Funk", "Dubstep",
    "Garage Rock", "Psybient",
};
static_assert(sizeof kGenres / sizeof kGenres[0] == 192);

// A reference "13", "RX" or "CR" in its shown form; false when `text` is
// none.
bool ShowReference(std::string_view text, std::string& out) {
    const char* name = nullptr;
    if (text == "RX") {
        name = "Remix";
    } else if (text == "CR") {
        name = "Cover";
    } else {
        unsigned number = 0;
        const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), number);
        if (text.empty() || ec != std::errc() || end != text.data() + text.size()) return false;
        name = GenreName(number);
        if (name == nullptr) return false;
    }
    out.append(text).append(" (").append(name).append(")");
    return true;
}

std::string ShowOne(std::string_view value) {
    std::string out;
    if (ShowReference(value, out)) return out;
    // ID3v2.3: "(13)(RX)text"; "((" starts a text that begins with "(".
    size_t at = 0;
    while (at < value.size() && value[at] == '(' && value.substr(at, 2) != "((") {
        const size_t close = value.find(')', at);
        if (close == std::string_view::npos) break;
        std::string shown;
        if (!ShowReference(value.substr(at + 1, close - at - 1), shown)) break;
        if (!out.empty()) out += ", ";
        out += shown;
        at = close + 1;
    }
    std::string_view rest = value.substr(at);
    if (rest.starts_with("((")) rest.remove_prefix(1);
    if (!out.empty() && !rest.empty()) out += " ";
    out += rest;
    return out;
}

}  // namespace

const char* GenreName(unsigned number) {
    return number < sizeof kGenres / sizeof kGenres[0] ? kGenres[number] : nullptr;
}

std::string ShowGenre(std::string_view value) {
    std::string out;
    for (size_t at = 0; at <= value.size();) {
        size_t end = value.find('\0', at);
        if (end == std::string_view::npos) end = value.size();
        // An ID3v2.4 list may end with a NUL: no empty value after it.
        if (at != 0 && at == end) break;
        if (at != 0) out += ", ";
        out += ShowOne(value.substr(at, end - at));
        at = end + 1;
    }
    return out;
}

}  // namespace kzdump
