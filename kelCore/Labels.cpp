#include "ElementFactoryType.h"
#include "LogLevel.h"
#include "Logging.h"
#include "WrapperFormat.h"

#include <string>

namespace kel {

namespace {

struct WrapperFormatLabel {
    WrapperFormat format;
    const char* label;
};

constexpr WrapperFormatLabel kWrapperFormatLabels[] = {
    {WrapperFormat::Unknown, "Unknown"}, {WrapperFormat::AIFF, "AIFF"},
    {WrapperFormat::BWAVE, "BWAVE"},     {WrapperFormat::RAW, "RAW"},
    {WrapperFormat::WAVE, "WAVE"},
};

// The label of a value without a name: the type and the number.
template <typename Enumeration>
std::string NumberLabel(const char* typeName, Enumeration value) {
    return std::string(typeName) + "(" + ToString(static_cast<int>(value)) + ")";
}

} // namespace

std::string GetLabel(WrapperFormat format) {
    for (const WrapperFormatLabel& entry : kWrapperFormatLabels) {
        if (entry.format == format) {
            return entry.label;
        }
    }
    return NumberLabel("WrapperFormat", format);
}

std::string ToString(WrapperFormat format) {
    return GetLabel(format);
}

bool FromString(WrapperFormat& out, const std::string& text) {
    for (const WrapperFormatLabel& entry : kWrapperFormatLabels) {
        if (text == entry.label) {
            out = entry.format;
            return true;
        }
    }
    return false;
}

std::string GetLabel(ElementFactoryType type) {
    switch (type) {
    case ElementFactoryType::AudioSource:
        return "AudioSource";
    case ElementFactoryType::AudioSink:
        return "AudioSink";
    case ElementFactoryType::MemoryBlockAllocator:
        return "MemoryBlockAllocator";
    }
    return NumberLabel("ElementFactoryType", type);
}

std::string ToString(LogLevel level) {
    switch (level) {
    case LogLevel::Info:
        return "Info";
    case LogLevel::Warning:
        return "Warning";
    case LogLevel::Error:
        return "Error";
    case LogLevel::Reserved:
        return "Reserved";
    case LogLevel::Milestone:
        return "Milestone";
    }
    return NumberLabel("LogLevel", level);
}

std::string ToString(int value) {
    return std::to_string(value);
}

} // namespace kel
