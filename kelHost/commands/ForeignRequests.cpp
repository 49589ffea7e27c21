#include "commands/ForeignRequests.h"

#include "audio/Formats.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

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
    Bits,     // 16, 24 or 32
    Encoding, // a name that --encoding accepts
    Word,
};

// A request under its names in other tools. In the texts, {in} and {out} are files or directories,
// {value} is the value of an option, and {pipe} begins a line that another tool continues.
struct ForeignRequest {
    std::vector<std::string_view> names;
    ForeignValue value;
    std::string_view example; // of the value
    std::string_view reason;
    // To type. Without "kelhost" at its beginning, it replaces the option in what was typed.
    std::string_view line;
    std::string_view command{}; // whose option it is; empty for any
};

constexpr std::string_view kRateReason = "kelhost does not change the rate, and sox does";
constexpr std::string_view kLevelReason = "kelhost does not change levels, and sox does";
constexpr std::string_view kMixReason =
    "kelhost selects channels (--channels) and does not mix them, and sox does";
constexpr std::string_view kCutReason = "--start, --end and --duration cut out a part";
constexpr std::string_view kPartLine = "kelhost copy {in} {out} {part}";
constexpr std::string_view kEncodingReason = "the name of this option is --encoding";
constexpr std::string_view kFieldReason = "info shows single facts";
constexpr std::string_view kFullReason = "info shows tags and other metadata";
constexpr std::string_view kFilesReason = "files are named without options, the input first";
constexpr std::string_view kOutput = "{output}"; // the value becomes the last file
constexpr std::string_view kRateLine = "{pipe} | sox -t wav - -r {value} {out}";
constexpr std::string_view kGainLine = "{pipe} | sox -t wav - {out} gain {value}";
constexpr std::string_view kNormLine = "{pipe} | sox -t wav - {out} norm";
constexpr std::string_view kMixLine = "{pipe} | sox -t wav - -c {value} {out}";

// Options. The first row with the name and a value of its kind applies.
const std::vector<ForeignRequest>& ForeignOptions() {
    using Value = ForeignValue;
    static const std::vector<ForeignRequest> options{
        {{"--duration", "--length", "-D", "-d"},
         Value::None,
         "",
         kFieldReason,
         "--field duration",
         "info"},
        {{"--rate", "--sample-rate"}, Value::None, "", kFieldReason, "--field rate", "info"},
        {{"--channels", "-c"}, Value::None, "", kFieldReason, "--field channels", "info"},
        {{"--samples", "--frames", "-s"}, Value::None, "", kFieldReason, "--field frames", "info"},
        {{"--bits", "-b", "-e", "-p"}, Value::None, "", kFieldReason, "--field encoding", "info"},
        {{"-print_format", "-of"},
         Value::Word,
         "",
         "the name of this option is --json",
         "--json",
         "info"},
        {{"-show_format", "-show_streams", "-show_chapters", "--tags", "--list", "-a"},
         Value::None,
         "",
         kFullReason,
         "--full",
         "info"},
        {{"--loudness", "--lufs"},
         Value::None,
         "",
         "the name of this option is --measure",
         "--measure",
         "info"},
        {{"--rate", "-r", "-ar", "--sample-rate", "--samplerate", "--resample",
          "-override-sample-rate"},
         Value::Number,
         "44100",
         kRateReason,
         kRateLine},
        {{"-b", "--bits", "--bit-depth", "--bitdepth"},
         Value::Bits,
         "24",
         kEncodingReason,
         "--encoding int{value}"},
        {{"-e", "-sample_fmt", "-acodec", "-codec:a", "-c:a", "--codec", "--subtype"},
         Value::Encoding,
         "int24",
         kEncodingReason,
         "--encoding {value}"},
        {{"-pcm16"}, Value::None, "", kEncodingReason, "--encoding int16"},
        {{"-pcm24"}, Value::None, "", kEncodingReason, "--encoding int24"},
        {{"-pcm32"}, Value::None, "", kEncodingReason, "--encoding int32"},
        {{"-float32"}, Value::None, "", kEncodingReason, "--encoding float32"},
        {{"-float64"}, Value::None, "", kEncodingReason, "--encoding float64"},
        {{"-endian", "--endian"},
         Value::Word,
         "big",
         "the name of this option is --byte-order",
         "--byte-order {value}"},
        {{"-c", "-ac", "--mix", "--downmix", "--remix"}, Value::Number, "1", kMixReason, kMixLine},
        {{"--mono"}, Value::None, "1", kMixReason, kMixLine},
        {{"--stereo"}, Value::None, "2", kMixReason, kMixLine},
        {{"-ss", "--ss", "--seek", "--from"},
         Value::Time,
         "10",
         "the name of this option is --start",
         "--start {value}"},
        {{"-to", "--to", "--until"},
         Value::Time,
         "10",
         "the name of this option is --end",
         "--end {value}"},
        {{"-t", "--length"},
         Value::Time,
         "10",
         "the name of this option is --duration",
         "--duration {value}"},
        {{"-t", "--type", "--container", "--output-format"},
         Value::Word,
         "",
         "the name of this option is --format",
         "--format wave"},
        {{"--trim", "--cut", "--crop", "--split"}, Value::None, "", kCutReason, kPartLine},
        {{"-i", "--input"}, Value::None, "", kFilesReason, ""},
        {{"--output", "--out"}, Value::Word, "", kFilesReason, kOutput},
        {{"-o"}, Value::Word, "", kFilesReason, kOutput, "plot"},
        {{"-hide_banner", "-nostdin"}, Value::None, "", "kelhost needs no such option", ""},
        {{"-d", "--decode"}, Value::None, "", "copy decodes every input", ""},
        {{"-D", "--no-dither"}, Value::None, "", "copy adds noise only with --dither", ""},
        {{"--left"}, Value::None, "", "the name of this option is --channels", "--channels 1"},
        {{"--right"}, Value::None, "", "the name of this option is --channels", "--channels 2"},
        {{"-a", "-R", "-av", "--archive"},
         Value::None,
         "",
         "the name of this option is --recursive",
         "--recursive"},
        {{"-u"}, Value::None, "", "the name of this option is --update", "--update"},
        {{"--target-directory"},
         Value::Word,
         "out",
         "the name of this option is --output-dir",
         "--output-dir {value}"},
        {{"-metadata", "--tag", "--set-tag", "--title", "--artist", "--comment"},
         Value::None,
         "",
         "kelhost keeps tags and does not edit them, and ffmpeg does",
         "ffmpeg -i {in} -c copy -metadata title=Name {out}"},
        {{"--spectrogram"},
         Value::None,
         "",
         "kelhost does not draw spectrograms, and sox does",
         "{pipe} | sox -t wav - -n spectrogram"},
        {{"-V", "-version"},
         Value::None,
         "",
         "the name of this option is --version",
         "kelhost --version"},
        {{"-y", "--overwrite", "--yes"},
         Value::None,
         "",
         "the name of this option is --force",
         "--force"},
        {{"--no-clobber", "--no-overwrite", "--ignore-existing"},
         Value::None,
         "",
         "the name of this option is --skip-existing",
         "--skip-existing"},
        {{"--gain", "--volume", "--vol", "--amplify", "-af", "-filter:a"},
         Value::Number,
         "-3",
         kLevelReason,
         kGainLine},
        {{"--normalize", "--normalise", "--norm", "-normalize"},
         Value::None,
         "",
         kLevelReason,
         kNormLine},
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
        {{"--bitrate", "--quality", "--compression", "--best", "-b:a", "-q:a", "-ab", "-ulaw",
          "-alaw"},
         Value::None,
         "",
         "kelhost writes uncompressed audio, and ffmpeg compresses it",
         "{pipe} | ffmpeg -i - {compressed}"},
        {{"--strip", "--no-metadata", "-map_metadata"},
         Value::Number,
         "",
         "the name of this option is --metadata",
         "--metadata none"},
        {{"--threads", "-threads", "--workers", "--parallel"},
         Value::Number,
         "4",
         "the name of this option is --jobs",
         "--jobs {value}"},
        {{"--silent", "-loglevel"},
         Value::Word,
         "",
         "the name of this option is --quiet",
         "--quiet"},
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
        {{"convert", "cp", "transcode", "encode", "decode", "write", "sox", "ffmpeg",
          "sndfile-convert"},
         Value::None,
         "",
         "the name of this command is copy",
         "kelhost copy {in} {out}"},
        {{"rsync"},
         Value::None,
         "",
         "copy --recursive copies directories",
         "kelhost copy --recursive {in} --output-dir {out}"},
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
        {{"resample", "rate"}, Value::Number, "44100", kRateReason, kRateLine},
        {{"gain", "volume", "vol"}, Value::Number, "-3", kLevelReason, kGainLine},
        {{"normalize", "normalise", "norm"}, Value::None, "", kLevelReason, kNormLine},
        {{"remix", "mono", "channels"}, Value::Number, "1", kMixReason, kMixLine},
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
        {{"probe", "show", "stat", "identify", "header", "ls", "list", "duration", "soxi",
          "ffprobe", "mediainfo", "metaflac", "sndfile-info"},
         Value::None,
         "",
         "the name of this command is info",
         "kelhost info {in}"},
        {{"tags", "tag", "metadata"}, Value::None, "", kFullReason, "kelhost info --full {in}"},
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
        {{"man", "usage"}, Value::None, "", "the name of this command is help", "kelhost help"},
        {{"version"}, Value::None, "", "this is an option", "kelhost --version"},
    };
    return commands;
}

// Formats that ffmpeg writes, by their extensions.
constexpr std::string_view kForeignFormats[] = {"flac", "mp3", "ogg", "oga", "opus", "m4a",
                                                "aac",  "mp4", "wv",  "ac3", "caf",  "au"};

// @param name of a file, or its extension without a dot
bool IsForeignFormat(std::string_view name) {
    std::string extension(name.substr(name.rfind('.') + 1));
    std::transform(
        extension.begin(), extension.end(), extension.begin(),
        [](unsigned char character) { return static_cast<char>(std::tolower(character)); });
    return std::find(std::begin(kForeignFormats), std::end(kForeignFormats), extension) !=
           std::end(kForeignFormats);
}

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
    case ForeignValue::Encoding:
        return FindEncoding(value).has_value();
    case ForeignValue::Word:
        return !value.empty();
    default:
        return false;
    }
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

bool IsOption(const std::string& word) {
    return word.size() > 1 && word.front() == '-' && !IsNumber(word);
}

// Returns the files among arguments, or else all that may be directories.
std::vector<std::string> FilesIn(const std::vector<std::string>& arguments) {
    std::vector<std::string> files;
    std::copy_if(arguments.begin(), arguments.end(), std::back_inserter(files), IsFile);
    if (files.empty()) {
        std::copy_if(arguments.begin(), arguments.end(), std::back_inserter(files),
                     [](const std::string& word) { return !IsOption(word) && !IsNumber(word); });
    }
    return files;
}

// Returns the options for the part that arguments name as sox does: a start and a length.
std::string DescribePart(const std::vector<std::string>& arguments) {
    std::vector<std::string> times;
    std::copy_if(arguments.begin(), arguments.end(), std::back_inserter(times), IsTime);
    return times.empty()
               ? "--start 0 --end 10"
               : "--start " + times[0] + (times.size() > 1 ? " --duration " + times[1] : "");
}

std::string Fill(std::string_view text, std::string_view value,
                 const std::vector<std::string>& arguments) {
    const std::vector<std::string> files = FilesIn(arguments);
    std::string line(text);
    Replace(line, "{part}", DescribePart(arguments));
    Replace(line, "{pipe}", "kelhost copy {in} - --format wave");
    Replace(line, "{value}", QuoteForShell(value));
    Replace(line, "{in}", files.empty() ? "in.wav" : QuoteForShell(files[0]));
    const bool isCompressed = files.size() > 1 && IsForeignFormat(files[1]);
    Replace(line, "{compressed}", isCompressed ? QuoteForShell(files[1]) : "out.mp3");
    Replace(line, "{out}", files.size() < 2 ? "out.wav" : QuoteForShell(files[1]));
    return line;
}

bool IsCalled(const ForeignRequest& request, std::string_view name) {
    return std::find(request.names.begin(), request.names.end(), name) != request.names.end();
}

// An option of another tool, as it was typed.
struct TypedOption {
    const ForeignRequest* request = nullptr; // null: it is none
    std::string value;                       // or an example of one
    bool isExample = false;
    bool usesNextWord = false;
};

// Interprets the option at a place. The first row with the name and a value of its kind applies,
// else the first one of the command, else the last one with the name.
TypedOption InterpretOption(const std::vector<std::string>& arguments, std::size_t place,
                            std::string_view command) {
    const std::string& word = arguments[place];
    const std::size_t equals = std::min(word.find('='), word.size());
    const std::string name = word.substr(0, equals);
    const bool hasValue = equals < word.size();
    std::string value = hasValue                       ? word.substr(equals + 1)
                        : place + 1 < arguments.size() ? arguments[place + 1]
                                                       : "";
    TypedOption typed;
    bool isAccepted = false;
    for (const ForeignRequest& request : ForeignOptions()) {
        const bool isMeant = request.command.empty() || request.command == command;
        if (isMeant && IsCalled(request, name) &&
            (typed.request == nullptr || typed.request->command.empty())) {
            typed.request = &request;
            isAccepted = Accepts(request.value, value);
            if (isAccepted) {
                break;
            }
        }
    }
    if (typed.request != nullptr) {
        const bool isFloat =
            typed.request->value == ForeignValue::Encoding && value.rfind("float", 0) == 0;
        typed.value = isAccepted ? value : isFloat ? "float32" : typed.request->example;
        typed.isExample = !isAccepted;
        const bool isOutput = typed.request->line == kOutput;
        typed.usesNextWord = !hasValue && typed.request->value != ForeignValue::None &&
                             !value.empty() && !IsOption(value) && (isOutput || !IsFile(value));
    }
    return typed;
}

bool IsReplaced(const ForeignRequest& request) {
    return request.line.empty() || request.line == kOutput || request.line.front() == '-';
}

// Adds an option with its value. Two of another tool may be one here.
void AddReplacement(std::vector<std::string>& words, const std::string& text, bool isExample) {
    const std::string name = text.substr(0, text.find(' '));
    const auto same = std::find_if(words.begin(), words.end(), [&](const std::string& word) {
        return word.substr(0, word.find(' ')) == name;
    });
    if (same == words.end()) {
        words.push_back(text);
    } else if (!isExample) {
        *same = text;
    }
}

// Returns what was typed with each option of another tool replaced.
std::string ReplaceOptions(std::string_view command, const std::vector<std::string>& arguments) {
    std::vector<std::string> words{"kelhost " + std::string(command)};
    std::vector<std::string> outputs;
    std::size_t files = 0; // or values of options that kelhost knows
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const TypedOption typed = InterpretOption(arguments, i, command);
        if (typed.request == nullptr || !IsReplaced(*typed.request)) {
            words.push_back(QuoteForShell(arguments[i]));
            files += IsOption(arguments[i]) ? 0U : 1U;
            continue;
        }
        if (typed.request->line == kOutput) {
            outputs.push_back(QuoteForShell(typed.value));
        } else if (!typed.request->line.empty()) {
            AddReplacement(words, Fill(typed.request->line, typed.value, arguments),
                           typed.isExample);
        }
        i += typed.usesNextWord ? 1 : 0;
    }
    const bool hasDirectory = std::any_of(words.begin(), words.end(), [](const std::string& word) {
        return word == "-o" || word.rfind("--output-dir", 0) == 0;
    });
    if (command == "copy" && files == 0) {
        outputs.insert(outputs.begin(), "in.wav");
    }
    if (command == "copy" && !hasDirectory && files + outputs.size() < 2) {
        outputs.emplace_back("out.wav");
    }
    words.insert(words.end(), outputs.begin(), outputs.end());
    return fmt::format("{}", fmt::join(words, " "));
}

} // namespace

std::optional<std::string> ExplainForeignOption(const std::string& option,
                                                const std::vector<std::string>& arguments,
                                                std::string_view command) {
    const auto place = std::find(arguments.begin(), arguments.end(), option);
    const TypedOption typed =
        place == arguments.end()
            ? InterpretOption({option}, 0, command)
            : InterpretOption(arguments, static_cast<std::size_t>(place - arguments.begin()),
                              command);
    if (typed.request == nullptr) {
        return std::nullopt;
    }
    return std::string(typed.request->reason) + ": " +
           (IsReplaced(*typed.request)
                ? ReplaceOptions(command.empty() ? "copy" : command, arguments)
                : Fill(typed.request->line, typed.value, arguments));
}

std::optional<std::string> ExplainForeignCommand(std::string_view command,
                                                 const std::vector<std::string>& arguments) {
    for (const ForeignRequest& request : ForeignCommands()) {
        if (IsCalled(request, command)) {
            const auto value =
                std::find_if(arguments.begin(), arguments.end(),
                             [&](const std::string& word) { return Accepts(request.value, word); });
            return std::string(request.reason) + ": " +
                   Fill(request.line, value == arguments.end() ? request.example : *value,
                        arguments);
        }
    }
    return std::nullopt;
}

std::string ExplainMissingCommand(const std::vector<std::string>& words) {
    std::vector<std::string> files;
    std::remove_copy_if(words.begin(), words.end(), std::back_inserter(files), IsOption);
    return files.size() == 1 ? "to show facts about a file: kelhost info " + QuoteForShell(files[0])
                             : "to copy a file: kelhost copy " + QuoteForShell(files[0]) + " " +
                                   QuoteForShell(files[1]);
}

std::optional<std::string> ExplainForeignFormat(std::string_view format, const std::string& input,
                                                const std::string& output) {
    if (!IsForeignFormat(format)) {
        return std::nullopt;
    }
    return "kelhost writes WAVE, RF64 and AIFF, and ffmpeg writes this format: kelhost copy " +
           QuoteForShell(input) + " - --format wave | ffmpeg -i - " + QuoteForShell(output);
}

} // namespace kel::host
