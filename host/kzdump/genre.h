// The genre list of ID3: numbers in the ID3v1 trailer and references in
// TCON ("(13)", "13", "(13)Pop", "(RX)", "(CR)") shown with their names.
#ifndef KZDUMP_GENRE_H
#define KZDUMP_GENRE_H

#include <string>
#include <string_view>

namespace kzdump {

// The name of genre `number` (0 to 191), or null.
const char* GenreName(unsigned number);

// The shown form of a genre value: each reference as "13 (Pop)", "RX
// (Remix)", "CR (Cover)", references joined by ", ", a refinement text
// after them kept after a space ("(13)Pop" is "13 (Pop) Pop"), "((" as "(";
// NUL-separated values of ID3v2.4 joined by ", ".  Text with no reference
// comes back as it is.
std::string ShowGenre(std::string_view value);

}  // namespace kzdump

#endif  // KZDUMP_GENRE_H
