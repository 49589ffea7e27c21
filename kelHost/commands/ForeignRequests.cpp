#include "commands/ForeignRequests.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kel::host {

namespace {

// Kinds of values, to tell apart options of the same name, and a value from a file.
enum class ForeignValue {
    None,
    Number,
    Time,
    Bits, // 16, 24 or 32
};

// A request under its names in other tools. In the texts, {in} and {out} are files, {value} is the
// value of an option, {command} is plot for a picture and otherwise copy, and {pipe} begins a line
// that another tool continues.
struct ForeignRequest {
    std::vector<std::string_view> names;
    ForeignValue value;
    std::string_view example; // of the value
    std::string_view reason;
    std::string_view line; // to type
};

constexpr std::string_view kRateReason = "kelhost does not change the rate, and sox does";
constexpr std::string_view kLevelReason = "kelhost does not change levels, and sox does";
constexpr std::string_view kMixReason =
    "kelhost selects channels (--channels) and does not mix them, and sox does";
constexpr std::string_view kCutReason = "--start, --end and --duration cut out a part";
constexpr std::string_view kPartLine = "kelhost copy {in} {out} --start 0 --end 10";
constexpr std::string_view kRateLine = "{pipe} | sox -t wav - -r {value} {out}";
constexpr std::string_view kGainLine = "{pipe} | sox -t wav - {out} gain {value}";
constexpr std::string_view kNormLine = "{pipe} | sox -t wav - {out} norm";
constexpr std::string_view kMixLine = "{pipe} | sox -t wav - -c {value} {out}";

// Options. The first row with the name and a value of its kind applies.
const std::vector<ForeignRequest>& ForeignOptions() {
    using Value = ForeignValue;
    static const std::vector<ForeignRequest> options{
        {{"--rate", "-r", "-ar", "--sample-rate", "--samplerate", "--resample"},
         Value::Number,
         "44100",
         kRateReason,
         kRateLine},
        {{"-b", "--bits", "--bit-depth", "--bitdepth"},
         Value::Bits,
         "24",
         "the name of this option is --encoding",
         "kelhost copy {in} {out} --encoding int{value}"},
        {{"-e", "-sample_fmt", "-acodec", "-codec:a", "-c:a", "--codec", "--subtype"},
         Value::None,
         "",
         "the name of this option is --encoding",
         "kelhost copy {in} {out} --encoding int24"},
        {{"-c", "-ac", "--mix", "--downmix", "--remix"}, Value::Number, "1", kMixReason, kMixLine},
        {{"--mono"}, Value::None, "1", kMixReason, kMixLine},
        {{"--stereo"}, Value::None, "2", kMixReason, kMixLine},
        {{"-ss", "--ss", "--seek", "--from"},
         Value::Time,
         "10",
         "the name of this option is --start",
         "kelhost copy {in} {out} --start {value}"},
        {{"-to", "--to", "--until"},
         Value::Time,
         "10",
         "the name of this option is --end",
         "kelhost copy {in} {out} --end {value}"},
        {{"-t", "--length"},
         Value::Time,
         "10",
         "the name of this option is --duration",
         "kelhost copy {in} {out} --duration {value}"},
        {{"-t", "--type", "--container", "--output-format"},
         Value::None,
         "",
         "the name of this option is --format",
         "kelhost copy {in} {out} --format wave"},
        {{"--trim", "--cut", "--crop", "--split"}, Value::None, "", kCutReason, kPartLine},
        {{"-i", "-o", "--input", "--output", "--out"},
         Value::None,
         "",
         "files are named without options, the input first",
         "kelhost {command} {in} {out}"},
        {{"-y", "--overwrite", "--yes"},
         Value::None,
         "",
         "the name of this option is --force",
         "kelhost copy {in} {out} --force"},
        {{"--no-clobber", "--no-overwrite"},
         Value::None,
         "",
         "the name of this option is --skip-existing",
         "kelhost copy {in} {out} --skip-existing"},
        {{"--gain", "--volume", "--vol", "--amplify", "-af", "-filter:a"},
         Value::Number,
         "-3",
         kLevelReason,
         kGainLine},
        {{"--normalize", "--normalise", "--norm"}, Value::None, "", kLevelReason, kNormLine},
        {{"--loudnorm", "--loudness", "--lufs"},
         Value::None,
         "",
         "kelhost measures loudness (info --measure), and ffmpeg changes it",
         "{pipe} | ffmpeg -i - -af loudnorm {out}"},
        {{"--fade", "--fade-in"},
         Value::Number,
         "1",
         "kelhost does not fade, and sox does",
         "{pipe} | sox -t wav - {out} fade {value}"},
        {{"--reverse"},
         Value::None,
         "",
         "kelhost does not reverse audio, and sox does",
         "{pipe} | sox -t wav - {out} reverse"},
        {{"--speed", "--tempo"},
         Value::Number,
         "1.5",
         "kelhost does not change the tempo, and sox does",
         "{pipe} | sox -t wav - {out} tempo {value}"},
        {{"--bitrate", "--quality", "--compression", "-b:a", "-q:a", "-ab"},
         Value::None,
         "",
         "kelhost writes uncompressed audio, and ffmpeg compresses it",
         "{pipe} | ffmpeg -i - out.mp3"},
        {{"--strip", "--no-metadata", "-map_metadata"},
         Value::None,
         "",
         "the name of this option is --metadata",
         "kelhost copy {in} {out} --metadata none"},
        {{"--threads", "-threads", "--workers", "--parallel"},
         Value::Number,
         "4",
         "the name of this option is --jobs",
         "kelhost copy {in} {out} --jobs {value}"},
        {{"--silent", "-loglevel"},
         Value::None,
         "",
         "the name of this option is --quiet",
         "kelhost copy {in} {out} --quiet"},
        {{"--md5", "--hash"},
         Value::None,
         "",
         "the name of this option is --checksum",
         "kelhost info --checksum {in}"},
        {{"--stat", "--stats", "--peak"},
         Value::None,
         "",
         "the name of this option is --measure",
         "kelhost info --measure {in}"},
    };
    return options;
}

const std::vector<ForeignRequest>& ForeignCommands() {
    using Value = ForeignValue;
    static const std::vector<ForeignRequest> commands{
        {{"convert", "cp", "transcode", "encode", "decode", "write"},
         Value::None,
         "",
         "the name of this command is copy",
         "kelhost copy {in} {out}"},
        {{"trim", "cut", "crop", "slice", "extract"},
         Value::None,
         "",
         "copy cuts out a part",
         kPartLine},
        {{"split"}, Value::None, "", "copy cuts out one part at a time", kPartLine},
        {{"cat", "concat", "join", "merge", "append", "splice"},
         Value::None,
         "",
         "kelhost does not join files, and sox does",
         "sox {in} {out} joined.wav"},
        {{"mix"},
         Value::None,
         "",
         "kelhost does not mix files, and sox does",
         "sox -m {in} {out} mixed.wav"},
        {{"play", "listen", "preview"},
         Value::None,
         "",
         "kelhost does not play audio, and ffplay does",
         "{pipe} | ffplay -i -"},
        {{"record", "rec"},
         Value::None,
         "",
         "kelhost does not record audio, and sox does",
         "rec {out}"},
        {{"resample", "rate"}, Value::None, "44100", kRateReason, kRateLine},
        {{"gain", "volume", "vol"}, Value::None, "-3", kLevelReason, kGainLine},
        {{"normalize", "normalise", "norm"}, Value::None, "", kLevelReason, kNormLine},
        {{"remix", "mono", "channels"}, Value::None, "1", kMixReason, kMixLine},
        {{"fade"},
         Value::None,
         "",
         "kelhost does not fade, and sox does",
         "{pipe} | sox -t wav - {out} fade 1"},
        {{"reverse"},
         Value::None,
         "",
         "kelhost does not reverse audio, and sox does",
         "{pipe} | sox -t wav - {out} reverse"},
        {{"spectrogram"},
         Value::None,
         "",
         "kelhost does not draw spectrograms, and sox does",
         "{pipe} | sox -t wav - -n spectrogram"},
        {{"probe", "show", "stat", "identify", "header", "ls", "list", "duration", "soxi"},
         Value::None,
         "",
         "the name of this command is info",
         "kelhost info {in}"},
        {{"tags", "tag", "metadata"},
         Value::None,
         "",
         "info shows tags and other metadata",
         "kelhost info --full {in}"},
        {{"measure", "stats", "loudness", "peak", "analyze", "analyse"},
         Value::None,
         "",
         "info measures audio",
         "kelhost info --measure {in}"},
        {{"md5", "checksum", "hash"},
         Value::None,
         "",
         "info computes checksums",
         "kelhost info --checksum {in}"},
        {{"diff", "cmp"},
         Value::None,
         "",
         "the name of this command is compare",
         "kelhost compare {in} {out}"},
        {{"waveform", "draw", "graph", "image"},
         Value::None,
         "",
         "the name of this command is plot",
         "kelhost plot {in}"},
        {{"elements", "plugins"},
         Value::None,
         "",
         "the name of this command is inspect",
         "kelhost inspect"},
        {{"encodings", "containers", "codecs"},
         Value::None,
         "",
         "the name of this command is formats",
         "kelhost formats"},
        {{"version"}, Value::None, "", "this is an option", "kelhost --version"},
    };
    return commands;
}

// Formats that ffmpeg writes, by their extensions.
constexpr std::string_view kForeignFormats[] = {"flac", "mp3", "ogg", "oga", "opus", "m4a",
                                                "aac",  "mp4", "wv",  "ac3", "caf",  "au"};

bool IsNumber(std::string_view text) {
    const std::string_view digits = text.substr(!text.empty() && text.front() == '-' ? 1 : 0);
    return !digits.empty() && std::all_of(digits.begin(), digits.end(), [](unsigned char digit) {
        return std::isdigit(digit) != 0 || digit == '.';
    });
}

bool IsTime(std::string_view text) {
    return !text.empty() && std::isdigit(static_cast<unsigned char>(text.front())) != 0 &&
           text.find_first_not_of("0123456789:.f") == std::string_view::npos;
}

// True for a name with an extension, such as "take.wav", which no value is.
bool IsFile(std::string_view word) {
    const std::size_t dot = word.rfind('.');
    return !word.empty() && word.front() != '-' && dot != std::string_view::npos &&
           dot + 1 < word.size() && std::isalpha(static_cast<unsigned char>(word[dot + 1])) != 0;
}

bool Accepts(ForeignValue kind, std::string_view value) {
    switch (kind) {
    case ForeignValue::Number:
        return IsNumber(value);
    case ForeignValue::Time:
        return IsTime(value);
    case ForeignValue::Bits:
        return value == "16" || value == "24" || value == "32";
    default:
        return false;
    }
}

bool IsPicture(const std::string& file) {
    const std::string extension = file.substr(file.rfind('.') + 1);
    return extension == "png" || extension == "svg" || extension == "pdf";
}

// Returns a word as the shell reads it.
std::string QuoteForShell(std::string_view word) {
    const bool isPlain = std::all_of(word.begin(), word.end(), [](unsigned char character) {
        return std::isalnum(character) != 0 || character >= 0x80 ||
               std::string_view("_./+:,=@%-").find(static_cast<char>(character)) !=
                   std::string_view::npos;
    });
    if (isPlain) {
        return std::string(word);
    }
    std::string quoted = "'";
    for (const char character : word) {
        quoted += character == '\'' ? std::string("'\\''") : std::string(1, character);
    }
    return quoted + "'";
}

void Replace(std::string& text, std::string_view mark, const std::string& content) {
    for (std::size_t place = text.find(mark); place != std::string::npos;
         place = text.find(mark, place + content.size())) {
        text.replace(place, mark.size(), content);
    }
}

std::string Explain(const ForeignRequest& request, std::string_view value,
                    const std::vector<std::string>& arguments) {
    std::vector<std::string> files;
    std::copy_if(arguments.begin(), arguments.end(), std::back_inserter(files), IsFile);
    std::string line(request.line);
    Replace(line, "{pipe}", "kelhost copy {in} - --format wave");
    Replace(line, "{command}", files.size() > 1 && IsPicture(files[1]) ? "plot" : "copy");
    Replace(line, "{value}", std::string(value.empty() ? request.example : value));
    Replace(line, "{in}", files.empty() ? "in.wav" : QuoteForShell(files[0]));
    Replace(line, "{out}", files.size() < 2 ? "out.wav" : QuoteForShell(files[1]));
    return std::string(request.reason) + ": " + line;
}

bool IsCalled(const ForeignRequest& request, std::string_view name) {
    return std::find(request.names.begin(), request.names.end(), name) != request.names.end();
}

} // namespace

std::optional<std::string> ExplainForeignOption(const std::string& option,
                                                const std::vector<std::string>& arguments) {
    const std::size_t equals = std::min(option.find('='), option.size());
    const std::string name = option.substr(0, equals);
    std::string value = option.substr(std::min(equals + 1, option.size()));
    const auto place = std::find(arguments.begin(), arguments.end(), option);
    if (equals == option.size() && place != arguments.end() && place + 1 != arguments.end()) {
        value = *(place + 1);
    }
    const ForeignRequest* found = nullptr;
    for (const ForeignRequest& request : ForeignOptions()) {
        if (IsCalled(request, name)) {
            if (Accepts(request.value, value)) {
                return Explain(request, value, arguments);
            }
            found = &request;
        }
    }
    return found == nullptr ? std::nullopt : std::optional(Explain(*found, "", arguments));
}

std::optional<std::string> ExplainForeignCommand(std::string_view command,
                                                 const std::vector<std::string>& arguments) {
    for (const ForeignRequest& request : ForeignCommands()) {
        if (IsCalled(request, command)) {
            return Explain(request, "", arguments);
        }
    }
    return std::nullopt;
}

std::string ExplainMissingCommand(const std::vector<std::string>& words) {
    return words.size() == 1 ? "to show facts about a file: kelhost info " + QuoteForShell(words[0])
                             : "to copy a file: kelhost copy " + QuoteForShell(words[0]) + " " +
                                   QuoteForShell(words[1]);
}

std::optional<std::string> ExplainForeignFormat(std::string_view format, const std::string& input,
                                                const std::string& output) {
    std::string lower(format);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char character) {
        return static_cast<char>(std::tolower(character));
    });
    if (std::find(std::begin(kForeignFormats), std::end(kForeignFormats), lower) ==
        std::end(kForeignFormats)) {
        return std::nullopt;
    }
    return "kelhost writes WAVE, RF64 and AIFF, and ffmpeg writes this format: kelhost copy " +
           QuoteForShell(input) + " - --format wave | ffmpeg -i - " + QuoteForShell(output);
}

} // namespace kel::host
