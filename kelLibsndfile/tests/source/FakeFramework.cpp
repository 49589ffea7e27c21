#include "FakeFramework.h"

#include <FakeSndfile.h>

#include <dlfcn.h>
#include <map>
#include <stdexcept>
#include <utility>

// How the compiler writes the types that occur more than once.
#define KEL_STRING "NSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"
#define KEL_WIDE_STRING "NSt7__cxx1112basic_stringIwSt11char_traitsIwESaIwEEE"

namespace kel::test {

namespace {

std::map<std::string, int>& Failing() {
    static std::map<std::string, int>& failing = *new std::map<std::string, int>;
    return failing;
}

// A function of the library behind the program.
class RealFunction {
public:
    explicit RealFunction(const char* mangledName) : m_symbol(dlsym(RTLD_NEXT, mangledName)) {
        if (m_symbol == nullptr) {
            throw std::runtime_error(dlerror());
        }
    }

    template <typename Result, typename... Arguments>
    operator std::function<Result(Arguments...)>() const { // NOLINT(google-explicit-constructor)
        return reinterpret_cast<Result (*)(Arguments...)>(m_symbol);
    }

private:
    void* m_symbol;
};

template <typename Member, typename... Arguments>
auto Answer(const char* name, Member member, Arguments&&... arguments) {
    Note(name);
    const auto& own = FrameworkAnswers().*member;
    return (own ? own : RealFramework().*member)(std::forward<Arguments>(arguments)...);
}

FrameworkFunctions FindRealFramework() {
    FrameworkFunctions real;
    real.createPrototype = RealFunction("_ZN3kel35CreateParametersCollectionPrototypeEv");
    real.createInstance = RealFunction("_ZN3kel34CreateParametersCollectionInstanceE"
                                       "RKSt10shared_ptrIKNS_30IParametersCollectionPrototypeEE");
    real.getRegistryEntryPrototype = RealFunction("_ZN3kel25GetRegistryEntryPrototypeEv");
    real.getLabel = RealFunction("_ZN3kel8GetLabelB5cxx11ENS_13WrapperFormatE");
    real.getCoreId = RealFunction("_ZN3kel20GetKELCoreIdInternalE" KEL_STRING);
    real.registerFactory = RealFunction("_ZN3kel15RegisterFactoryE" KEL_STRING
                                        "S5_St10shared_ptrINS_15IElementFactoryEE"
                                        "S6_IKNS_29IParametersCollectionInstanceEE");
    real.convertWideString =
        RealFunction("_ZN3kel33ConvertWideStringToPlatformStringERK" KEL_WIDE_STRING);
    real.extractFilename = RealFunction("_ZN3kel23ExtractFilenameFromPathE" KEL_WIDE_STRING);
    real.getAllocator = RealFunction("_ZN3kel12GetAllocatorERK" KEL_STRING);
    real.createAudioParameters = RealFunction("_ZN3kel21CreateAudioParametersENS_12ACodecFamilyE");
    real.createTrackGroup = RealFunction("_ZN3kel16CreateTrackGroupE" KEL_STRING);
    real.createTrack = RealFunction("_ZN3kel11CreateTrackENS_11ContentTypeEj"
                                    "St10shared_ptrIKNS_11ITrackGroupEENS_11TrackLayoutE");
    real.createChannelInfo =
        RealFunction("_ZN3kel17CreateChannelInfoESt10shared_ptrIKNS_6ITrackEE");
    real.createAudioInfo = RealFunction(
        "_ZN3kel15CreateAudioInfoESt10shared_ptrIKNS_16IAudioParametersEES0_IKNS_12IChannelInfoEE"
        "St6vectorIS0_IKNS_9IMetadataEESaISA_EES7_IS0_IKNS_10IClockInfoEESaISF_EE");
    real.createMilestone = RealFunction("_ZN3kel15CreateMilestoneE" KEL_STRING);
    real.getFactory =
        RealFunction("_ZN3kel10GetFactoryENS_18ElementFactoryTypeERK" KEL_STRING "S8_");
    real.getManifest =
        RealFunction("_ZN3kel11GetManifestENS_18ElementFactoryTypeERK" KEL_STRING "S8_");
    real.createInfoContainer =
        RealFunction("_ZN3kel19CreateInfoContainerESt10shared_ptrIKNS_5IInfoEE"
                     "S0_IKNS_14IPackagingInfoEE");
    real.createBuffer =
        RealFunction("_ZN3kel12CreateBufferESt10shared_ptrINS_21IMemoryBlockAllocatorEE"
                     "S0_INS_12IMemoryBlockEE");
    real.createAudioSample = RealFunction(
        "_ZN3kel17CreateAudioSampleESt10shared_ptrIKNS_16IAudioParametersEES0_IKNS_10IAudioInfoEE"
        "S0_IKNS_7IBufferEERKNS_10TimeLimitsESt6vectorIS0_IKNS_9IMetadataEESaISG_EE");
    real.createSampleContainer =
        RealFunction("_ZN3kel21CreateSampleContainerESt10shared_ptrIKNS_7ISampleEE"
                     "S0_IKNS_14IPackagingInfoEE");
    return real;
}

} // namespace

void Note(const std::string& call) {
    SndfileCalls().push_back(call);
    const auto failing = Failing().find(call);
    if (failing != Failing().end() && --failing->second == 0) {
        throw Failure{call};
    }
}

void FailAt(const std::string& call, int occurrence) {
    Failing()[call] = occurrence;
}

const FrameworkFunctions& RealFramework() {
    static const FrameworkFunctions& real = *new FrameworkFunctions(FindRealFramework());
    return real;
}

FrameworkFunctions& FrameworkAnswers() {
    static FrameworkFunctions& answers = *new FrameworkFunctions;
    return answers;
}

void ResetStandIns() {
    StandIn() = {};
    FrameworkAnswers() = {};
    Failing().clear();
    SndfileCalls().clear();
}

} // namespace kel::test

namespace kel {

using test::Answer;
using test::FrameworkFunctions;

std::shared_ptr<IParametersCollectionPrototype> CreateParametersCollectionPrototype() {
    return Answer("CreateParametersCollectionPrototype", &FrameworkFunctions::createPrototype);
}

std::shared_ptr<IParametersCollectionInstance> CreateParametersCollectionInstance(
    const std::shared_ptr<const IParametersCollectionPrototype>& prototype) {
    return Answer("CreateParametersCollectionInstance", &FrameworkFunctions::createInstance,
                  prototype);
}

std::shared_ptr<const IParametersCollectionPrototype> GetRegistryEntryPrototype() {
    return Answer("GetRegistryEntryPrototype", &FrameworkFunctions::getRegistryEntryPrototype);
}

std::string GetLabel(WrapperFormat format) {
    return Answer("GetLabel", &FrameworkFunctions::getLabel, format);
}

std::string GetKELCoreIdInternal(std::string version) {
    return Answer("GetKELCoreIdInternal", &FrameworkFunctions::getCoreId, std::move(version));
}

void RegisterFactory(std::string name, std::string coreId, std::shared_ptr<IElementFactory> factory,
                     std::shared_ptr<const IParametersCollectionInstance> registryEntry) {
    Answer("RegisterFactory", &FrameworkFunctions::registerFactory, std::move(name),
           std::move(coreId), std::move(factory), std::move(registryEntry));
}

std::string ConvertWideStringToPlatformString(const std::wstring& text) {
    return Answer("ConvertWideStringToPlatformString", &FrameworkFunctions::convertWideString,
                  text);
}

std::wstring ExtractFilenameFromPath(std::wstring path) {
    return Answer("ExtractFilenameFromPath", &FrameworkFunctions::extractFilename, std::move(path));
}

std::shared_ptr<IMemoryBlockAllocator> GetAllocator(const std::string& name) {
    return Answer("GetAllocator", &FrameworkFunctions::getAllocator, name);
}

std::shared_ptr<IAudioParameters> CreateAudioParameters(ACodecFamily family) {
    return Answer("CreateAudioParameters", &FrameworkFunctions::createAudioParameters, family);
}

std::shared_ptr<ITrackGroup> CreateTrackGroup(std::string name) {
    return Answer("CreateTrackGroup", &FrameworkFunctions::createTrackGroup, std::move(name));
}

std::shared_ptr<ITrack> CreateTrack(ContentType type, std::uint32_t channels,
                                    std::shared_ptr<const ITrackGroup> group, TrackLayout layout) {
    return Answer("CreateTrack", &FrameworkFunctions::createTrack, type, channels, std::move(group),
                  layout);
}

std::shared_ptr<IChannelInfo> CreateChannelInfo(std::shared_ptr<const ITrack> track) {
    return Answer("CreateChannelInfo", &FrameworkFunctions::createChannelInfo, std::move(track));
}

std::shared_ptr<IAudioInfo> CreateAudioInfo(std::shared_ptr<const IAudioParameters> parameters,
                                            std::shared_ptr<const IChannelInfo> channels,
                                            std::vector<std::shared_ptr<const IMetadata>> metadata,
                                            std::vector<std::shared_ptr<const IClockInfo>> clocks) {
    return Answer("CreateAudioInfo", &FrameworkFunctions::createAudioInfo, std::move(parameters),
                  std::move(channels), std::move(metadata), std::move(clocks));
}

std::shared_ptr<IMilestone> CreateMilestone(std::string name) {
    return Answer("CreateMilestone", &FrameworkFunctions::createMilestone, std::move(name));
}

std::shared_ptr<IElementFactory>
GetFactory(ElementFactoryType kind, const std::string& implementation, const std::string& type) {
    return Answer("GetFactory", &FrameworkFunctions::getFactory, kind, implementation, type);
}

std::shared_ptr<const IParametersCollectionInstance>
GetManifest(ElementFactoryType kind, const std::string& implementation, const std::string& type) {
    return Answer("GetManifest", &FrameworkFunctions::getManifest, kind, implementation, type);
}

std::shared_ptr<IInfoContainer>
CreateInfoContainer(std::shared_ptr<const IInfo> info,
                    std::shared_ptr<const IPackagingInfo> packaging) {
    return Answer("CreateInfoContainer", &FrameworkFunctions::createInfoContainer, std::move(info),
                  std::move(packaging));
}

std::shared_ptr<IBuffer> CreateBuffer(std::shared_ptr<IMemoryBlockAllocator> allocator,
                                      std::shared_ptr<IMemoryBlock> block) {
    return Answer("CreateBuffer", &FrameworkFunctions::createBuffer, std::move(allocator),
                  std::move(block));
}

std::shared_ptr<IAudioSample>
CreateAudioSample(std::shared_ptr<const IAudioParameters> parameters,
                  std::shared_ptr<const IAudioInfo> info, std::shared_ptr<const IBuffer> buffer,
                  const TimeLimits& limits,
                  std::vector<std::shared_ptr<const IMetadata>> metadata) {
    return Answer("CreateAudioSample", &FrameworkFunctions::createAudioSample,
                  std::move(parameters), std::move(info), std::move(buffer), limits,
                  std::move(metadata));
}

std::shared_ptr<ISampleContainer>
CreateSampleContainer(std::shared_ptr<const ISample> sample,
                      std::shared_ptr<const IPackagingInfo> packaging) {
    return Answer("CreateSampleContainer", &FrameworkFunctions::createSampleContainer,
                  std::move(sample), std::move(packaging));
}

} // namespace kel
