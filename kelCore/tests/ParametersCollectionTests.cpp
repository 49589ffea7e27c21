#include <CapturingWriter.h>
#include <ParametersCollection.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace kel {

namespace {

using testing::ElementsAre;

constexpr const char* kThisModule = "kelCore/ParametersCollection.cpp";

using PrototypeHandle = std::shared_ptr<const IParametersCollectionPrototype>;

// One parameter of each kind, with and without a default.
std::shared_ptr<IParametersCollectionPrototype> MakePrototype() {
    auto prototype = CreateParametersCollectionPrototype();
    prototype->AddStringParameter("FilePath", "Path of the file.");
    prototype->AddIntegerParameter("MaxSamplesPerBuffer", 1024, "Frames in a sample.");
    prototype->AddStringParameterWithDefault("AllocatorRef", "", "");
    prototype->AddStringParameterWithDefault("Greeting", "gr\xC3\xBC\xC3\x9F dich", "Any text.");
    prototype->AddCollectionParameter("init_config", "More parameters.");
    return prototype;
}

std::shared_ptr<IParametersCollectionInstance> MakeInstance() {
    return CreateParametersCollectionInstance(MakePrototype());
}

// One line for each parameter.
std::vector<std::string> Describe(const IParametersCollectionPrototype& prototype) {
    std::vector<std::string> lines;
    for (const ParameterDescription& parameter : prototype.GetParameters()) {
        std::string text =
            parameter.name + ", " + ToString(parameter.kind) + ": " + parameter.description;
        if (parameter.defaultValue.has_value()) {
            const ParameterValue& value = *parameter.defaultValue;
            text += " = " + (std::holds_alternative<std::string>(value)
                                 ? "\"" + std::get<std::string>(value) + "\""
                                 : std::to_string(std::get<std::int32_t>(value)));
        }
        lines.push_back(text);
    }
    return lines;
}

TEST(APrototype, ReturnsItsParametersInOrder) {
    EXPECT_THAT(Describe(*CreateParametersCollectionPrototype()), ElementsAre());
    EXPECT_THAT(Describe(*MakePrototype()),
                ElementsAre("FilePath, string: Path of the file.",
                            "MaxSamplesPerBuffer, integer: Frames in a sample. = 1024",
                            "AllocatorRef, string:  = \"\"",
                            "Greeting, string: Any text. = \"gr\xC3\xBC\xC3\x9F dich\"",
                            "init_config, collection: More parameters."));
}

using Declare = std::function<void(IParametersCollectionPrototype&, const char* name)>;

const std::vector<Declare> kDeclarations = {
    [](auto& prototype, auto* name) { prototype.AddStringParameter(name, ""); },
    [](auto& prototype, auto* name) { prototype.AddStringParameterWithDefault(name, "", ""); },
    [](auto& prototype, auto* name) { prototype.AddIntegerParameter(name, 0, ""); },
    [](auto& prototype, auto* name) { prototype.AddCollectionParameter(name, ""); },
};

TEST(APrototype, RefusesANameThatIsEmptyOrDeclaredAlready) {
    for (const Declare& declare : kDeclarations) {
        const auto prototype = CreateParametersCollectionPrototype();
        prototype->AddIntegerParameter("name", 1, "first");
        test::ExpectFailure("[parameter \"name\" is declared already]", kThisModule,
                            [&] { declare(*prototype, "name"); });
        test::ExpectFailure("[a parameter needs a name]", kThisModule,
                            [&] { declare(*prototype, ""); });
        EXPECT_THAT(Describe(*prototype), ElementsAre("name, integer: first = 1"));
    }
}

TEST(AnInstance, NeedsAPrototype) {
    test::ExpectFailure("[a parameters collection needs a prototype] [ Pointer is null ]",
                        kThisModule, [] { CreateParametersCollectionInstance(nullptr); });
}

TEST(AnInstance, ReturnsTheDefaultsOfParametersThatWereNeverSet) {
    const auto instance = MakeInstance();
    EXPECT_EQ(instance->GetIntegerValue("MaxSamplesPerBuffer"), 1024);
    EXPECT_EQ(instance->GetStringValue("AllocatorRef"), "");
    EXPECT_EQ(instance->GetStringValue("Greeting"), "gr\xC3\xBC\xC3\x9F dich");
    EXPECT_EQ(instance->GetWideStringValue("Greeting"), L"gr\u00FC\u00DF dich");
    EXPECT_EQ(instance->GetStringValue("FilePath"), "");
    EXPECT_EQ(instance->GetWideStringValue("FilePath"), L"");
    EXPECT_EQ(instance->GetCollectionValue("init_config"), nullptr);
}

TEST(AnInstance, ReturnsTheValueThatWasSetLast) {
    const auto instance = MakeInstance();
    const PrototypeHandle collection = CreateParametersCollectionPrototype();
    instance->SetIntegerValue("MaxSamplesPerBuffer", 1);
    instance->SetIntegerValue("MaxSamplesPerBuffer", 2);
    instance->SetStringValue("FilePath", "one");
    instance->SetStringValue("FilePath", "two");
    instance->SetStringValue("Greeting", "");
    instance->SetCollectionValue("init_config", MakePrototype());
    instance->SetCollectionValue("init_config", collection);
    EXPECT_EQ(instance->GetIntegerValue("MaxSamplesPerBuffer"), 2);
    EXPECT_EQ(instance->GetStringValue("FilePath"), "two");
    EXPECT_EQ(instance->GetStringValue("Greeting"), "") << "set to the empty text, not unset";
    EXPECT_EQ(instance->GetCollectionValue("init_config"), collection);
    instance->SetCollectionValue("init_config", nullptr);
    EXPECT_EQ(instance->GetCollectionValue("init_config"), nullptr);
}

TEST(AnInstance, AcceptsEvery32BitIntegerAsValueAndAsDefault) {
    for (const std::int32_t value : {0, -1, INT32_MAX, INT32_MIN}) {
        const auto prototype = CreateParametersCollectionPrototype();
        prototype->AddIntegerParameter("number", value, "");
        prototype->AddIntegerParameter("Number", 1, "");
        const auto instance = CreateParametersCollectionInstance(prototype);
        EXPECT_EQ(instance->GetIntegerValue("number"), value);
        instance->SetIntegerValue("Number", value);
        EXPECT_EQ(instance->GetIntegerValue("Number"), value);
    }
}

TEST(AnInstance, ReturnsTextAsNarrowOrWideHoweverItWasSet) {
    const auto instance = MakeInstance();
    instance->SetStringValue("FilePath", "d\xC3\xA9j\xC3\xA0 \xF0\x9D\x84\x9E");
    EXPECT_EQ(instance->GetStringValue("FilePath"), "d\xC3\xA9j\xC3\xA0 \xF0\x9D\x84\x9E");
    EXPECT_EQ(instance->GetWideStringValue("FilePath"), L"d\u00E9j\u00E0 \U0001D11E");
    instance->SetWideStringValue("FilePath", L"\u20AC vu");
    EXPECT_EQ(instance->GetStringValue("FilePath"), "\xE2\x82\xAC vu");
    EXPECT_EQ(instance->GetWideStringValue("FilePath"), L"\u20AC vu");
}

TEST(AnInstance, KeepsTextThatIsNotUtf8OrHasNullCharacters) {
    const auto instance = MakeInstance();
    instance->SetStringValue("FilePath", "caf\xE9.wav");
    EXPECT_EQ(instance->GetStringValue("FilePath"), "caf\xE9.wav");
    const std::wstring wide = instance->GetWideStringValue("FilePath");
    EXPECT_EQ(wide, std::wstring(L"caf") + wchar_t{0xDCE9} + L".wav");
    instance->SetWideStringValue("AllocatorRef", wide);
    EXPECT_EQ(instance->GetStringValue("AllocatorRef"), "caf\xE9.wav");
    instance->SetStringValue("FilePath", std::string("a\0b", 3));
    EXPECT_EQ(instance->GetStringValue("FilePath"), std::string("a\0b", 3));
}

TEST(AnInstance, RefusesWideTextWithoutANarrowFormAndKeepsItsValue) {
    const auto instance = MakeInstance();
    instance->SetStringValue("FilePath", "before");
    test::ExpectFailure(
        "[the wide text has no narrow form: character 55296 at position 2]",
        "kelCore/PlatformString.cpp",
        [&] { instance->SetWideStringValue("FilePath", std::wstring(L"ab") + wchar_t{0xD800}); });
    EXPECT_EQ(instance->GetStringValue("FilePath"), "before");
}

TEST(AnInstance, IsIndependentOfItsPrototypeAndOfOtherInstances) {
    auto prototype = MakePrototype();
    const auto instance = CreateParametersCollectionInstance(prototype);
    CreateParametersCollectionInstance(prototype)->SetIntegerValue("MaxSamplesPerBuffer", 7);
    EXPECT_EQ(instance->GetIntegerValue("MaxSamplesPerBuffer"), 1024);
    prototype->AddIntegerParameter("later", 1, "");
    test::ExpectFailure("[parameter \"later\" is not declared (wanted: integer)]", kThisModule,
                        [&] { instance->GetIntegerValue("later"); });
    EXPECT_EQ(CreateParametersCollectionInstance(prototype)->GetIntegerValue("later"), 1);
    prototype.reset();
    EXPECT_EQ(instance->GetIntegerValue("MaxSamplesPerBuffer"), 1024);
}

/// A prototype that the framework did not make.
class ForeignPrototype final : public IParametersCollectionPrototype {
public:
    void AddStringParameter(std::string_view, std::string_view) override {}
    void AddStringParameterWithDefault(std::string_view, std::string_view,
                                       std::string_view) override {}
    void AddIntegerParameter(std::string_view, std::int32_t, std::string_view) override {}
    void AddCollectionParameter(std::string_view, std::string_view) override {}
    std::vector<ParameterDescription> GetParameters() const override {
        return {{"number", ParameterKind::Integer, "", {}},
                {"collection", ParameterKind::Collection, "", defaultCollection}};
    }

    PrototypeHandle defaultCollection = CreateParametersCollectionPrototype();
};

TEST(AnInstance, CanBeMadeFromAnyPrototype) {
    const auto prototype = std::make_shared<const ForeignPrototype>();
    const auto instance = CreateParametersCollectionInstance(prototype);
    EXPECT_EQ(instance->GetIntegerValue("number"), 0);
    EXPECT_EQ(instance->GetCollectionValue("collection"), prototype->defaultCollection);
}

// Every getter and setter, with the kind that it is for.
struct Access {
    ParameterKind kind;
    std::function<void(IParametersCollectionInstance&, const char* parameter)> run;
};

const std::vector<Access> kAccesses = {
    {ParameterKind::Integer,
     [](auto& i, auto* name) {
         i.GetIntegerValue(name);
     }},
    {ParameterKind::Integer,
     [](auto& i, auto* name) {
         i.SetIntegerValue(name, 7);
     }},
    {ParameterKind::String,
     [](auto& i, auto* name) {
         i.GetStringValue(name);
     }},
    {ParameterKind::String,
     [](auto& i, auto* name) {
         i.SetStringValue(name, "x");
     }},
    {ParameterKind::String,
     [](auto& i, auto* name) {
         i.GetWideStringValue(name);
     }},
    {ParameterKind::String,
     [](auto& i, auto* name) {
         i.SetWideStringValue(name, L"x");
     }},
    {ParameterKind::Collection,
     [](auto& i, auto* name) {
         i.GetCollectionValue(name);
     }},
    {ParameterKind::Collection,
     [](auto& i, auto* name) {
         i.SetCollectionValue(name, nullptr);
     }},
};

TEST(AnAccess, ToAnUndeclaredNameIsRefused) {
    for (const Access& access : kAccesses) {
        for (const std::string name :
             {"Missing", "filepath", "FilePath ", "File", "\"name\"", ""}) {
            const auto instance = MakeInstance();
            test::ExpectFailure("[parameter \"" + name +
                                    "\" is not declared (wanted: " + ToString(access.kind) + ")]",
                                kThisModule, [&] { access.run(*instance, name.c_str()); });
        }
    }
}

TEST(AnAccess, AsAnotherKindIsRefusedWithBothKindsAndChangesNothing) {
    const std::vector<std::pair<std::string, ParameterKind>> kDeclared = {
        {"MaxSamplesPerBuffer", ParameterKind::Integer},
        {"Greeting", ParameterKind::String},
        {"FilePath", ParameterKind::String},
        {"init_config", ParameterKind::Collection},
    };
    for (const Access& access : kAccesses) {
        for (const auto& [name, kind] : kDeclared) {
            if (kind == access.kind) {
                continue;
            }
            const auto instance = MakeInstance();
            test::ExpectFailure("[parameter \"" + name + "\" is declared as " + ToString(kind) +
                                    " (wanted: " + ToString(access.kind) + ")]",
                                kThisModule,
                                [&, wrong = name.c_str()] { access.run(*instance, wrong); });
            EXPECT_EQ(instance->GetIntegerValue("MaxSamplesPerBuffer"), 1024);
            EXPECT_EQ(instance->GetStringValue("Greeting"), "gr\xC3\xBC\xC3\x9F dich");
        }
    }
}

TEST(ParameterKinds, HaveWords) {
    EXPECT_EQ(ToString(ParameterKind::Integer), "integer");
    EXPECT_EQ(ToString(ParameterKind::String), "string");
    EXPECT_EQ(ToString(ParameterKind::Collection), "collection");
    EXPECT_EQ(ToString(static_cast<ParameterKind>(9)), "ParameterKind(9)");
}

} // namespace
} // namespace kel
