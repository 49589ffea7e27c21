// The registrations that the plug-in makes when a host calls its entry point.

#include <CapturingWriter.h>
#include <Plugin.h>
#include <kelCore.h>

#include <cstddef>
#include <cstdint>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <tuple>
#include <typeinfo>
#include <vector>

namespace kel {

// Compares all parts of a declaration.
inline bool operator==(const ParameterDescription& left, const ParameterDescription& right) {
    return left.name == right.name && left.kind == right.kind &&
           left.description == right.description && left.defaultValue == right.defaultValue;
}

namespace test {
namespace {

using Parameters = std::vector<ParameterDescription>;
using Row = std::tuple<std::int32_t, std::string, std::string>; // class, type, implementation

const std::string kSource = "kel.LibsndfileSource";
const std::string kSink = "kel.LibsndfileSink";

const std::vector<Row> kRows = {
    {2, "AIFF", kSource}, {2, "WAVE", kSource}, {2, "BWAVE", kSource}, {3, "Unknown", kSink},
    {3, "AIFF", kSink},   {3, "WAVE", kSink},   {3, "BWAVE", kSink},   {3, "RAW", kSink},
};
constexpr std::size_t kSources = 3;

// Each test registers under a name of its own and removes its registrations.
class PluginRegistration : public ::testing::Test {
protected:
    ~PluginRegistration() override { UnregisterFactories(m_name); }

    void RegisterAll() { CallEntryPoint(m_name.c_str()); }

    static void CallEntryPoint(const char* name) {
        reinterpret_cast<void (*)(const char*)>(dlsym(LoadPlugin(), "RegisterAll"))(name);
    }

    std::vector<Registration> Registrations() const {
        std::vector<Registration> own;
        for (Registration& registration : GetRegistrations()) {
            if (registration.name == m_name) {
                own.push_back(registration);
            }
        }
        return own;
    }

    // The registrations of one element, of which there is at least one.
    std::vector<Registration> RegistrationsOf(const std::string& implementation) const {
        std::vector<Registration> own;
        for (Registration& registration : Registrations()) {
            if (registration.entry->GetStringValue("implementation") == implementation) {
                own.push_back(registration);
            }
        }
        if (own.empty()) {
            throw std::runtime_error("no registration of " + implementation);
        }
        return own;
    }

private:
    const std::string m_name =
        ::testing::UnitTest::GetInstance()->current_test_info()->name() + std::string(" host");
};

std::vector<Row> RowsOf(const std::vector<Registration>& registrations) {
    std::vector<Row> rows;
    for (const Registration& registration : registrations) {
        rows.emplace_back(registration.entry->GetIntegerValue("class"),
                          registration.entry->GetStringValue("type"),
                          registration.entry->GetStringValue("implementation"));
    }
    return rows;
}

std::shared_ptr<const IParametersCollectionPrototype>
PrototypeOf(const Registration& registration) {
    return registration.entry->GetCollectionValue("init_config");
}

template <ElementFactoryType T>
std::shared_ptr<ElementFactory<T>> FactoryOf(const Registration& registration) {
    auto factory = std::dynamic_pointer_cast<ElementFactory<T>>(registration.factory);
    if (factory == nullptr) {
        throw std::runtime_error("a factory of another kind");
    }
    return factory;
}

constexpr auto SourceFactoryOf = FactoryOf<ElementFactoryType::AudioSource>;
constexpr auto SinkFactoryOf = FactoryOf<ElementFactoryType::AudioSink>;

// A configuration that fails when a value is read.
class UnreadableCollection final : public IParametersCollectionInstance {
public:
    void SetIntegerValue(std::string_view, std::int32_t) override { Refuse(); }
    void SetStringValue(std::string_view, std::string_view) override { Refuse(); }
    void SetWideStringValue(std::string_view, const std::wstring&) override { Refuse(); }
    void SetCollectionValue(std::string_view,
                            std::shared_ptr<const IParametersCollectionPrototype>) override {
        Refuse();
    }
    std::int32_t GetIntegerValue(std::string_view) const override { Refuse(); }
    std::string GetStringValue(std::string_view) const override { Refuse(); }
    std::wstring GetWideStringValue(std::string_view) const override { Refuse(); }
    std::shared_ptr<const IParametersCollectionPrototype>
    GetCollectionValue(std::string_view) const override {
        Refuse();
    }

private:
    [[noreturn]] static void Refuse() { throw std::logic_error("the configuration is in use"); }
};

TEST_F(PluginRegistration, RegistersThreeFormatsWithTheSourceThenFiveWithTheSink) {
    RegisterAll();
    EXPECT_EQ(RowsOf(Registrations()), kRows);
}

TEST_F(PluginRegistration, PassesTheCoreIdOfThePluginsVersion) {
    RegisterAll();
    const std::string coreId = GetKELCoreIdInternal("0.7.16.249.80659");
    for (const Registration& registration : Registrations()) {
        EXPECT_EQ(registration.coreId, coreId);
    }
}

TEST_F(PluginRegistration, RefusesANullNameAndRegistersNothing) {
    LoadPlugin();
    const std::size_t before = GetRegistrations().size();
    const LogCapture log;
    try {
        CallEntryPoint(nullptr);
        ADD_FAILURE() << "took the null name";
    } catch (const std::exception& error) {
        EXPECT_EQ(typeid(error), typeid(std::logic_error)) << error.what();
    }
    EXPECT_EQ(GetRegistrations().size(), before);
    EXPECT_EQ(log->Records().size(), 0U);
}

TEST_F(PluginRegistration, MakesAFactoryAndAnEntryForEachFormat) {
    RegisterAll();
    std::set<const void*> factories;
    std::set<const void*> entries;
    for (const Registration& registration : Registrations()) {
        factories.insert(registration.factory.get());
        entries.insert(registration.entry.get());
    }
    EXPECT_EQ(factories.size(), kRows.size());
    EXPECT_EQ(entries.size(), kRows.size());
}

TEST_F(PluginRegistration, MakesFactoriesOfTheKindOfTheElement) {
    RegisterAll();
    const auto registrations = Registrations();
    ASSERT_EQ(registrations.size(), kRows.size());
    for (std::size_t i = 0; i < registrations.size(); ++i) {
        SCOPED_TRACE(i);
        const auto kind =
            i < kSources ? ElementFactoryType::AudioSource : ElementFactoryType::AudioSink;
        EXPECT_EQ(registrations[i].factory->GetFactoryType(), kind);
        if (i < kSources) {
            EXPECT_NE(SourceFactoryOf(registrations[i])->creator, nullptr);
        } else {
            EXPECT_NE(SinkFactoryOf(registrations[i])->creator, nullptr);
        }
    }
}

TEST_F(PluginRegistration, DocumentsTheSource) {
    RegisterAll();
    for (const Registration& registration : RegistrationsOf(kSource)) {
        EXPECT_EQ(
            registration.entry->GetStringValue("doc"),
            "This source allows loading PCM audio data from various file formats. The type "
            "attribute of the node describes the file format to read. Choices are WAVE, BWAVE "
            "(for RF64) and AIFF.\n"
            "Please note that you should load libkelLibsndFile.so/kelLibsndFile.dll to be "
            "able to use this source.This source is not available on Windows at the moment.");
    }
}

TEST_F(PluginRegistration, DocumentsTheSink) {
    RegisterAll();
    for (const Registration& registration : RegistrationsOf(kSink)) {
        EXPECT_EQ(registration.entry->GetStringValue("doc"),
                  "This sink  allows writing PCM audio data to various file formats. The type "
                  "attribute of the node describes the file format to write. Choices are WAVE, "
                  "BWAVE (actually RF64), AIFF and RAW (without header). If you set its value to "
                  "Unknown, the sink will try to guess the file type from the extension.\n"
                  "Please note that you should load libkelLibsndFile.so/kelLibsndFile.dll to be "
                  "able to use this sink.This sink is not available on Windows at the moment.");
    }
}

TEST_F(PluginRegistration, DeclaresTheSettingsOfTheSourceInOrder) {
    RegisterAll();
    const Parameters expected = {
        {"FilePath", ParameterKind::String, "Path to the file to open", std::nullopt},
        {"MaxSamplesPerBuffer", ParameterKind::Integer,
         "Maximum number of samples that will be returned in each buffer. Configurable.", 1024},
        {"AllocatorRef", ParameterKind::String, "", std::string()},
    };
    for (const Registration& registration : RegistrationsOf(kSource)) {
        EXPECT_TRUE(PrototypeOf(registration)->GetParameters() == expected);
    }
}

TEST_F(PluginRegistration, DeclaresTheSettingsOfTheSinkInOrder) {
    RegisterAll();
    const Parameters expected = {
        {"FilePath", ParameterKind::String, "Path to the file to write.", std::nullopt},
        {"AllocatorRef", ParameterKind::String, "", std::string()},
    };
    for (const Registration& registration : RegistrationsOf(kSink)) {
        EXPECT_TRUE(PrototypeOf(registration)->GetParameters() == expected);
    }
}

TEST_F(PluginRegistration, SharesThePrototypeAmongTheFormatsOfAnElement) {
    RegisterAll();
    const auto source = PrototypeOf(RegistrationsOf(kSource)[0]);
    const auto sink = PrototypeOf(RegistrationsOf(kSink)[0]);
    EXPECT_NE(source, sink);
    for (const Registration& registration : RegistrationsOf(kSource)) {
        EXPECT_EQ(PrototypeOf(registration), source);
    }
    for (const Registration& registration : RegistrationsOf(kSink)) {
        EXPECT_EQ(PrototypeOf(registration), sink);
    }
}

TEST_F(PluginRegistration, CreatesClosedSourcesThatHaveReadNothing) {
    RegisterAll();
    for (const Registration& registration : RegistrationsOf(kSource)) {
        const auto config = std::make_shared<UnreadableCollection>();
        const LogCapture log;
        const auto source = SourceFactoryOf(registration)->creator(config);
        ASSERT_NE(source, nullptr);
        EXPECT_FALSE(source->IsMediaOpen());
        EXPECT_EQ(source->GetManifest(), config);
        EXPECT_EQ(log->Records().size(), 0U);
    }
}

} // namespace
} // namespace test
} // namespace kel
