// Command line of kzdump.
#ifndef KZDUMP_OPTIONS_H
#define KZDUMP_OPTIONS_H

#include <cstdint>
#include <string>
#include <vector>

namespace kzdump {

enum class OutputMode { Text, Json, Trace };

struct Options {
    OutputMode mode = OutputMode::Text;
    bool recursive = false;
    bool help = false;
    bool codes = false;      // JSON: the raw character codes too
    unsigned jobs = 1;
    uint32_t stopEvery = 0;  // 0: never answer a frame break with "stop"
    uint16_t fileType = 0;   // 0: detected from each file
    std::string filterPath;  // empty: the module the kit finds
    std::vector<std::string> paths;
};

// Fills `options` from the arguments; on bad usage returns false with a
// one-line reason in `error`.
bool ParseOptions(int argc, char** argv, Options& options, std::string& error);

const char* HelpText();

}  // namespace kzdump

#endif  // KZDUMP_OPTIONS_H
