#include "commands/Command.h"

#include "base/Errors.h"
#include "base/JSONDocument.h"
#include "base/Text.h"
#include "commands/CommonOptions.h"
#include "elements/SupportedFormats.h"

#include <nlohmann/json.hpp>

#include <memory>
#include <string>
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

std::string AsTable(const std::vector<SupportedFormat>& formats) {
    std::vector<std::vector<std::string>> rows;
    for (const SupportedFormat& format : formats) {
        rows.push_back({std::string(format.container->name), std::string(format.container->title),
                        std::string(format.encoding->name),
                        std::string(Describe(format.byteOrder.value)),
                        format.accepted ? "yes" : "no", format.readers});
    }
    return FormatTable(
        {{"Format"}, {"Container"}, {"Encoding"}, {"Byte order"}, {"Written"}, {"Read by"}}, rows);
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
                            : AsTable(formats));
        return kSuccess;
    }
};

} // namespace

std::unique_ptr<Command> MakeFormatsCommand() {
    return std::make_unique<FormatsCommand>();
}

} // namespace kel::host
