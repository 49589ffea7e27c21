// Compares arbitrary declarations, changes and reads of a parameter collection with plain maps.

#include "Fuzz.h"

#include <map>
#include <optional>
#include <string>

namespace {

using namespace kel;
using fuzz::Input;

struct Value {
    ParameterKind kind = ParameterKind::Integer;
    std::int32_t number = 0;
    std::string text;
};

std::string Name(Input& input) {
    // Few names, so that they occur repeatedly; some with bytes that are no text.
    return input.Byte() % 4 == 0 ? input.Text(3)
                                 : std::string(1, static_cast<char>('a' + input.Byte() % 6));
}

void Declare(IParametersCollectionPrototype& prototype, std::map<std::string, Value>& model,
             Input& input) {
    const std::string name = Name(input);
    Value value;
    bool refused = false;
    switch (input.Byte() % 3) {
    case 0:
        value.number = static_cast<std::int32_t>(input.Word());
        refused = fuzz::Refuses([&] { prototype.AddIntegerParameter(name, value.number, "d"); });
        break;
    case 1:
        value.kind = ParameterKind::String;
        value.text = input.Text(input.Byte() % 8U);
        refused =
            fuzz::Refuses([&] { prototype.AddStringParameterWithDefault(name, value.text, "d"); });
        break;
    default:
        value.kind = ParameterKind::String;
        refused = fuzz::Refuses([&] { prototype.AddStringParameter(name, "d"); });
        break;
    }
    KEL_FUZZ_REQUIRE(refused == (name.empty() || model.count(name) > 0));
    if (!refused) {
        model.emplace(name, value);
    }
}

void Use(IParametersCollectionInstance& instance, std::map<std::string, Value>& model,
         Input& input) {
    const std::string name = Name(input);
    const auto found = model.find(name);
    const auto is = [&](ParameterKind kind) {
        return found != model.end() && found->second.kind == kind;
    };
    switch (input.Byte() % 5) {
    case 0: {
        const auto number = static_cast<std::int32_t>(input.Word());
        const bool refused = fuzz::Refuses([&] { instance.SetIntegerValue(name, number); });
        KEL_FUZZ_REQUIRE(refused != is(ParameterKind::Integer));
        if (!refused) {
            found->second.number = number;
        }
        break;
    }
    case 1: {
        const std::string text = input.Text(input.Byte() % 8U);
        const bool refused = fuzz::Refuses([&] { instance.SetStringValue(name, text); });
        KEL_FUZZ_REQUIRE(refused != is(ParameterKind::String));
        if (!refused) {
            found->second.text = text;
        }
        break;
    }
    case 2: {
        const bool refused = fuzz::Refuses(
            [&] { KEL_FUZZ_REQUIRE(instance.GetIntegerValue(name) == found->second.number); });
        KEL_FUZZ_REQUIRE(refused != is(ParameterKind::Integer));
        break;
    }
    case 3: {
        const bool refused = fuzz::Refuses(
            [&] { KEL_FUZZ_REQUIRE(instance.GetStringValue(name) == found->second.text); });
        KEL_FUZZ_REQUIRE(refused != is(ParameterKind::String));
        break;
    }
    default: {
        const bool refused = fuzz::Refuses([&] {
            KEL_FUZZ_REQUIRE(instance.GetWideStringValue(name) ==
                             ConvertPlatformStringToWideString(found->second.text));
        });
        KEL_FUZZ_REQUIRE(refused != is(ParameterKind::String));
        break;
    }
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::DiscardRecords();
    Input input(data, size);
    const auto prototype = CreateParametersCollectionPrototype();
    std::map<std::string, Value> model;
    for (int count = input.Byte() % 8; count > 0; --count) {
        Declare(*prototype, model, input);
    }
    KEL_FUZZ_REQUIRE(prototype->GetParameters().size() == model.size());
    const auto instance = CreateParametersCollectionInstance(prototype);
    while (!input.IsAtEnd()) {
        Use(*instance, model, input);
    }
    return 0;
}
