#include "commands/Command.h"

#include "base/Errors.h"
#include "base/JSONDocument.h"
#include "base/Text.h"
#include "commands/CommonOptions.h"
#include "elements/SupportedFormats.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kel::host {

namespace {

using nlohmann::json;

json AsJSON(const std::vector<SupportedFormat>& formats) {
    auto list = json::array();
    for (const SupportedFormat& format : formats) {
        list.push_back({{"format", format.container->name},
                        {"container", format.container->title},
                        {"extensions", format.container->extensions},
                        {"encoding", format.encoding->name},
                        {"byte_order", Describe(format.byteOrder.value)},
                        {"written", format.accepted},
                        {"readers", format.readers}});
    }
    return list;
}

// Returns the accepted byte orders of an encoding in a container, the default in front: "big,
// little"; "-" where there is none.
std::string ListByteOrders(const std::vector<SupportedFormat>& formats, const Container& container,
                           const Encoding& encoding) {
    FormatChoice choice;
    choice.container = &container;
    const PCMEndianness usual = ResolveFormat(choice, "").byteOrder;
    std::string first;
    std::string others;
    for (const SupportedFormat& format : formats) {
        if (format.accepted && format.container == &container && format.encoding == &encoding) {
            std::string& list = format.byteOrder.value == usual ? first : others;
            list += fmt::format("{}{}", list.empty() ? "" : ", ", format.byteOrder.name);
        }
    }
    const std::string list = first + (first.empty() || others.empty() ? "" : ", ") + others;
    return list.empty() ? "-" : list;
}

// Containers by encodings, with the byte orders.
std::string FormatMatrix(const std::vector<SupportedFormat>& formats) {
    std::vector<Column> columns{{"Format"}};
    for (const Encoding& encoding : Encodings()) {
        columns.push_back({std::string(encoding.name)});
    }
    std::vector<std::vector<std::string>> rows;
    for (const Container& container : Containers()) {
        rows.push_back({std::string(container.name)});
        for (const Encoding& encoding : Encodings()) {
            rows.back().push_back(ListByteOrders(formats, container, encoding));
        }
    }
    return FormatTable(columns, rows);
}

std::string FormatContainers() {
    std::vector<std::vector<std::string>> rows;
    for (const Container& container : Containers()) {
        rows.push_back({std::string(container.name), std::string(container.title),
                        fmt::format("{}", fmt::join(container.extensions, ", "))});
    }
    return FormatTable({{"Format"}, {"Container"}, {"Extensions"}}, rows);
}

// Encodings of a container and byte order that the same programs read.
struct ReadEncodings {
    const SupportedFormat* first = nullptr;
    std::vector<std::string_view> names;
};

std::vector<ReadEncodings> GroupByReaders(const std::vector<SupportedFormat>& formats) {
    std::vector<ReadEncodings> groups;
    for (const SupportedFormat& format : formats) {
        if (!format.accepted) {
            continue;
        }
        const auto group = std::find_if(groups.begin(), groups.end(), [&](const auto& other) {
            return other.first->container == format.container &&
                   other.first->byteOrder.value == format.byteOrder.value &&
                   other.first->readers == format.readers;
        });
        (group != groups.end() ? *group : groups.emplace_back(ReadEncodings{&format, {}}))
            .names.push_back(format.encoding->name);
    }
    return groups;
}

std::string FormatReaders(const std::vector<SupportedFormat>& formats) {
    std::vector<std::vector<std::string>> rows;
    for (const ReadEncodings& group : GroupByReaders(formats)) {
        rows.push_back({std::string(group.first->container->name),
                        std::string(group.first->byteOrder.name),
                        group.names.size() == Encodings().size()
                            ? "all"
                            : fmt::format("{}", fmt::join(group.names, ", ")),
                        group.first->readers});
    }
    return FormatTable({{"Format"}, {"Byte order"}, {"Encodings"}, {"Read by"}}, rows);
}

std::string AsText(const std::vector<SupportedFormat>& formats) {
    return "Byte orders of the encodings in each format, the default in front:\n\n" +
           FormatMatrix(formats) + "\n" + FormatContainers() + "\n" + FormatReaders(formats);
}

class FormatsCommand final : public Command {
public:
    FormatsCommand() {
        AddExample("kelhost formats", "Show them as a table");
        AddExample("kelhost formats --json", "Show them to a program");
    }

    int Run(const CommonOptions& common, const Streams& streams) override {
        const std::vector<SupportedFormat> formats = QuerySupportedFormats();
        streams.out << (common.style.json
                            ? FormatDocument("formats", {{"formats", AsJSON(formats)}})
                            : AsText(formats));
        return kSuccess;
    }
};

} // namespace

std::unique_ptr<Command> MakeFormatsCommand() {
    return std::make_unique<FormatsCommand>();
}

} // namespace kel::host
