#include <CapturingWriter.h>
#include <ParametersCollection.h>

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace kel {

namespace {

constexpr const char* kThisModule = "kelCore/ParametersCollection.cpp";

using PrototypeHandle = std::shared_ptr<const IParametersCollectionPrototype>;

static_assert(std::has_virtual_destructor_v<IParametersCollectionPrototype>);
static_assert(std::has_virtual_destructor_v<IParametersCollectionInstance>);

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

TEST(APrototype, DeclaresNothingAtFirst) {
    EXPECT_TRUE(CreateParametersCollectionPrototype()->GetParameters().empty());
}

TEST(APrototype, TellsWhatItDeclaresInOrder) {
    const std::vector<ParameterDescription> parameters = MakePrototype()->GetParameters();
    ASSERT_EQ(parameters.size(), 5U);

    EXPECT_EQ(parameters[0].name, "FilePath");
    EXPECT_EQ(parameters[0].kind, ParameterKind::String);
    EXPECT_EQ(parameters[0].description, "Path of the file.");
    EXPECT_FALSE(parameters[0].defaultValue.has_value());

    EXPECT_EQ(parameters[1].name, "MaxSamplesPerBuffer");
    EXPECT_EQ(parameters[1].kind, ParameterKind::Integer);
    EXPECT_EQ(parameters[1].description, "Frames in a sample.");
    EXPECT_EQ(parameters[1].defaultValue, ParameterValue(1024));

    EXPECT_EQ(parameters[2].name, "AllocatorRef");
    EXPECT_EQ(parameters[2].kind, ParameterKind::String);
    EXPECT_EQ(parameters[2].description, "");
    EXPECT_EQ(parameters[2].defaultValue, ParameterValue(std::string()));

    EXPECT_EQ(parameters[3].name, "Greeting");
    EXPECT_EQ(parameters[3].kind, ParameterKind::String);
    EXPECT_EQ(parameters[3].description, "Any text.");
    EXPECT_EQ(parameters[3].defaultValue, ParameterValue(std::string("gr\xC3\xBC\xC3\x9F dich")));

    EXPECT_EQ(parameters[4].name, "init_config");
    EXPECT_EQ(parameters[4].kind, ParameterKind::Collection);
    EXPECT_EQ(parameters[4].description, "More parameters.");
    EXPECT_FALSE(parameters[4].defaultValue.has_value());
}

using Declare = std::function<void(IParametersCollectionPrototype&, const char* name)>;

const std::vector<Declare> kDeclarations = {
    [](auto& prototype, auto* name) { prototype.AddStringParameter(name, ""); },
    [](auto& prototype, auto* name) { prototype.AddStringParameterWithDefault(name, "", ""); },
    [](auto& prototype, auto* name) { prototype.AddIntegerParameter(name, 0, ""); },
    [](auto& prototype, auto* name) { prototype.AddCollectionParameter(name, ""); },
};

TEST(APrototype, RefusesANameThatIsDeclaredAlreadyWhateverTheKinds) {
    for (const Declare& first : kDeclarations) {
        for (const Declare& second : kDeclarations) {
            const auto prototype = CreateParametersCollectionPrototype();
            first(*prototype, "name");
            const std::vector<ParameterDescription> before = prototype->GetParameters();
            test::ExpectFailure("[parameter \"name\" is declared already]", kThisModule,
                                [&] { second(*prototype, "name"); });
            ASSERT_EQ(prototype->GetParameters().size(), 1U);
            EXPECT_EQ(prototype->GetParameters()[0].kind, before[0].kind);
        }
    }
}

TEST(APrototype, RefusesAnEmptyName) {
    for (const Declare& declare : kDeclarations) {
        const auto prototype = CreateParametersCollectionPrototype();
        test::ExpectFailure("[a parameter needs a name]", kThisModule,
                            [&] { declare(*prototype, ""); });
        EXPECT_TRUE(prototype->GetParameters().empty());
    }
}

TEST(APrototype, TakesNamesThatDifferInCaseAlone) {
    const auto prototype = CreateParametersCollectionPrototype();
    prototype->AddIntegerParameter("name", 1, "");
    prototype->AddIntegerParameter("Name", 2, "");
    const auto instance = CreateParametersCollectionInstance(prototype);
    EXPECT_EQ(instance->GetIntegerValue("name"), 1);
    EXPECT_EQ(instance->GetIntegerValue("Name"), 2);
}

TEST(AnInstance, NeedsAPrototype) {
    test::ExpectFailure("[a parameters collection needs a prototype] [ Pointer is null ]",
                        kThisModule, [] { CreateParametersCollectionInstance(nullptr); });
}

TEST(AnInstance, ReadsAsTheDefaultsWhereNothingWasSet) {
    const auto instance = MakeInstance();
    EXPECT_EQ(instance->GetIntegerValue("MaxSamplesPerBuffer"), 1024);
    EXPECT_EQ(instance->GetStringValue("AllocatorRef"), "");
    EXPECT_EQ(instance->GetStringValue("Greeting"), "gr\xC3\xBC\xC3\x9F dich");
    EXPECT_EQ(instance->GetWideStringValue("Greeting"), L"gr\u00FC\u00DF dich");
}

TEST(AnInstance, ReadsAsNothingWhereNothingWasSetAndThereIsNoDefault) {
    const auto instance = MakeInstance();
    EXPECT_EQ(instance->GetStringValue("FilePath"), "");
    EXPECT_EQ(instance->GetWideStringValue("FilePath"), L"");
    EXPECT_EQ(instance->GetCollectionValue("init_config"), nullptr);
}

TEST(AnInstance, ReadsAsWhatWasSetLast) {
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
}

TEST(AnInstance, TakesEvery32BitInteger) {
    const auto instance = MakeInstance();
    for (const std::int32_t value : {0, 1, -1, 1024, INT32_MAX, INT32_MIN}) {
        instance->SetIntegerValue("MaxSamplesPerBuffer", value);
        EXPECT_EQ(instance->GetIntegerValue("MaxSamplesPerBuffer"), value);
    }
}

TEST(AnInstance, HasDefaultsOfEvery32BitInteger) {
    for (const std::int32_t value : {0, -1, INT32_MAX, INT32_MIN}) {
        const auto prototype = CreateParametersCollectionPrototype();
        prototype->AddIntegerParameter("number", value, "");
        EXPECT_EQ(CreateParametersCollectionInstance(prototype)->GetIntegerValue("number"), value);
    }
}

TEST(AnInstance, ReadsTextAsNarrowOrWideWhicheverWayItWasSet) {
    const auto instance = MakeInstance();
    instance->SetStringValue("FilePath", "d\xC3\xA9j\xC3\xA0 \xF0\x9D\x84\x9E");
    EXPECT_EQ(instance->GetStringValue("FilePath"), "d\xC3\xA9j\xC3\xA0 \xF0\x9D\x84\x9E");
    EXPECT_EQ(instance->GetWideStringValue("FilePath"), L"d\u00E9j\u00E0 \U0001D11E");
    instance->SetWideStringValue("FilePath", L"\u20AC vu");
    EXPECT_EQ(instance->GetStringValue("FilePath"), "\xE2\x82\xAC vu");
    EXPECT_EQ(instance->GetWideStringValue("FilePath"), L"\u20AC vu");
}

TEST(AnInstance, KeepsTextThatIsNotUtf8) {
    const auto instance = MakeInstance();
    instance->SetStringValue("FilePath", "caf\xE9.wav");
    EXPECT_EQ(instance->GetStringValue("FilePath"), "caf\xE9.wav");
    const std::wstring wide = instance->GetWideStringValue("FilePath");
    EXPECT_EQ(wide, std::wstring(L"caf") + wchar_t{0xDCE9} + L".wav");
    instance->SetWideStringValue("AllocatorRef", wide);
    EXPECT_EQ(instance->GetStringValue("AllocatorRef"), "caf\xE9.wav");
}

TEST(AnInstance, KeepsTextWithNullCharacters) {
    const auto instance = MakeInstance();
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

TEST(AnInstance, TakesAnEmptyCollection) {
    const auto instance = MakeInstance();
    instance->SetCollectionValue("init_config", MakePrototype());
    instance->SetCollectionValue("init_config", nullptr);
    EXPECT_EQ(instance->GetCollectionValue("init_config"), nullptr);
}

TEST(AnInstance, SharesItsCollection) {
    const auto instance = MakeInstance();
    PrototypeHandle collection = MakePrototype();
    const std::weak_ptr<const IParametersCollectionPrototype> watch = collection;
    instance->SetCollectionValue("init_config", std::move(collection));
    EXPECT_FALSE(watch.expired());
    EXPECT_EQ(instance->GetCollectionValue("init_config"), watch.lock());
}

TEST(AnInstance, IsIndependentOfOthersOfItsPrototype) {
    const auto prototype = MakePrototype();
    const auto one = CreateParametersCollectionInstance(prototype);
    const auto other = CreateParametersCollectionInstance(prototype);
    one->SetIntegerValue("MaxSamplesPerBuffer", 7);
    EXPECT_EQ(other->GetIntegerValue("MaxSamplesPerBuffer"), 1024);
}

TEST(AnInstance, DoesNotKnowWhatItsPrototypeDeclaresLater) {
    const auto prototype = MakePrototype();
    const auto instance = CreateParametersCollectionInstance(prototype);
    prototype->AddIntegerParameter("later", 1, "");
    test::ExpectFailure("[parameter \"later\" is not declared (wanted: integer)]", kThisModule,
                        [&] { instance->GetIntegerValue("later"); });
    EXPECT_EQ(CreateParametersCollectionInstance(prototype)->GetIntegerValue("later"), 1);
}

TEST(AnInstance, OutlivesItsPrototype) {
    auto prototype = MakePrototype();
    const auto instance = CreateParametersCollectionInstance(prototype);
    prototype.reset();
    EXPECT_EQ(instance->GetIntegerValue("MaxSamplesPerBuffer"), 1024);
}

/// A prototype of a host's own.
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
    const char* name;
    ParameterKind kind;
    std::function<void(IParametersCollectionInstance&, const char* parameter)> run;
};

const std::vector<Access> kAccesses = {
    {"GetInteger", ParameterKind::Integer,
     [](auto& i, auto* name) {
         i.GetIntegerValue(name);
     }},
    {"SetInteger", ParameterKind::Integer,
     [](auto& i, auto* name) {
         i.SetIntegerValue(name, 7);
     }},
    {"GetString", ParameterKind::String,
     [](auto& i, auto* name) {
         i.GetStringValue(name);
     }},
    {"SetString", ParameterKind::String,
     [](auto& i, auto* name) {
         i.SetStringValue(name, "x");
     }},
    {"GetWideString", ParameterKind::String,
     [](auto& i, auto* name) {
         i.GetWideStringValue(name);
     }},
    {"SetWideString", ParameterKind::String,
     [](auto& i, auto* name) {
         i.SetWideStringValue(name, L"x");
     }},
    {"GetCollection", ParameterKind::Collection,
     [](auto& i, auto* name) {
         i.GetCollectionValue(name);
     }},
    {"SetCollection", ParameterKind::Collection,
     [](auto& i, auto* name) {
         i.SetCollectionValue(name, nullptr);
     }},
};

void PrintTo(const Access& access, std::ostream* stream) {
    *stream << access.name;
}

class ParameterAccess : public testing::TestWithParam<Access> {};

TEST_P(ParameterAccess, OfAnUndeclaredNameIsRefused) {
    const std::string wanted = ToString(GetParam().kind);
    for (const std::string name : {"Missing", "filepath", "FilePath ", "File", "a \"name\"", ""}) {
        const auto instance = MakeInstance();
        test::ExpectFailure("[parameter \"" + name + "\" is not declared (wanted: " + wanted + ")]",
                            kThisModule, [&] { GetParam().run(*instance, name.c_str()); });
    }
}

TEST_P(ParameterAccess, AsAnotherKindIsRefusedWithBothKindsAndChangesNothing) {
    const std::vector<std::pair<std::string, ParameterKind>> declared = {
        {"MaxSamplesPerBuffer", ParameterKind::Integer},
        {"Greeting", ParameterKind::String},
        {"FilePath", ParameterKind::String},
        {"init_config", ParameterKind::Collection},
    };
    const auto instance = MakeInstance();
    for (const auto& [name, kind] : declared) {
        if (kind != GetParam().kind) {
            test::ExpectFailure("[parameter \"" + name + "\" is declared as " + ToString(kind) +
                                    " (wanted: " + ToString(GetParam().kind) + ")]",
                                kThisModule,
                                [&, wrong = name.c_str()] { GetParam().run(*instance, wrong); });
        }
    }
    if (GetParam().kind != ParameterKind::Integer) {
        EXPECT_EQ(instance->GetIntegerValue("MaxSamplesPerBuffer"), 1024);
    }
    if (GetParam().kind != ParameterKind::String) {
        EXPECT_EQ(instance->GetStringValue("Greeting"), "gr\xC3\xBC\xC3\x9F dich");
    }
}

INSTANTIATE_TEST_SUITE_P(By, ParameterAccess, testing::ValuesIn(kAccesses),
                         [](const testing::TestParamInfo<Access>& tested) {
                             return std::string(tested.param.name);
                         });

TEST(ParameterKinds, HaveWords) {
    EXPECT_EQ(ToString(ParameterKind::Integer), "integer");
    EXPECT_EQ(ToString(ParameterKind::String), "string");
    EXPECT_EQ(ToString(ParameterKind::Collection), "collection");
    EXPECT_EQ(ToString(static_cast<ParameterKind>(9)), "ParameterKind(9)");
}

} // namespace
} // namespace kel
