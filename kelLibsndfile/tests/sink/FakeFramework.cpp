#include "FakeFramework.h"

#include <dlfcn.h>
#include <stdexcept>
#include <utility>

namespace kel::test {

namespace {

template <typename Function>
Function* RealFunction(const char* mangledName) {
    void* const symbol = dlsym(RTLD_NEXT, mangledName);
    if (symbol == nullptr) {
        throw std::runtime_error(dlerror());
    }
    return reinterpret_cast<Function*>(symbol);
}

template <typename Member, typename... Arguments>
auto Answer(Member member, Arguments&&... arguments) {
    const auto& own = FrameworkAnswers().*member;
    return (own ? own : RealFramework().*member)(std::forward<Arguments>(arguments)...);
}

} // namespace

const FrameworkFunctions& RealFramework() {
    static const FrameworkFunctions& real = *new FrameworkFunctions{
        RealFunction<std::shared_ptr<IAudioParameters>(ACodecFamily)>(
            "_ZN3kel21CreateAudioParametersENS_12ACodecFamilyE"),
        RealFunction<bool(WrapperFormat&, const std::string&)>(
            "_ZN3kel10FromStringERNS_13WrapperFormatE"
            "RKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"),
        RealFunction<std::string(const std::wstring&)>(
            "_ZN3kel33ConvertWideStringToPlatformStringE"
            "RKNSt7__cxx1112basic_stringIwSt11char_traitsIwESaIwEEE"),
        RealFunction<ReportHandle()>("_ZN3kel29CreateCheckInputReportNoErrorEv"),
        RealFunction<ReportHandle(std::multiset<ContentType>)>(
            "_ZN3kel32CreateCheckInputReportTrackErrorE"
            "St8multisetINS_11ContentTypeESt4lessIS1_ESaIS1_EE"),
        RealFunction<ReportHandle(AcceptedEncodings)>(
            "_ZN3kel35CreateCheckInputReportEncodingErrorE"
            "St3mapINSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"
            "St6vectorISt10shared_ptrIKNS_19IEncodingParametersEESaISB_EE"
            "St4lessIS6_ESaISt4pairIKS6_SD_EEE"),
    };
    return real;
}

FrameworkFunctions& FrameworkAnswers() {
    static FrameworkFunctions& answers = *new FrameworkFunctions;
    return answers;
}

} // namespace kel::test

namespace kel {

using test::Answer;
using test::FrameworkFunctions;

std::shared_ptr<IAudioParameters> CreateAudioParameters(ACodecFamily family) {
    return Answer(&FrameworkFunctions::createAudioParameters, family);
}

bool FromString(WrapperFormat& out, const std::string& text) {
    return Answer(&FrameworkFunctions::fromString, out, text);
}

std::string ConvertWideStringToPlatformString(const std::wstring& text) {
    return Answer(&FrameworkFunctions::convertWideString, text);
}

std::shared_ptr<const ICheckInputReport> CreateCheckInputReportNoError() {
    return Answer(&FrameworkFunctions::createNoError);
}

std::shared_ptr<const ICheckInputReport>
CreateCheckInputReportTrackError(std::multiset<ContentType> expected) {
    return Answer(&FrameworkFunctions::createTrackError, std::move(expected));
}

std::shared_ptr<const ICheckInputReport>
CreateCheckInputReportEncodingError(test::AcceptedEncodings accepted) {
    return Answer(&FrameworkFunctions::createEncodingError, std::move(accepted));
}

} // namespace kel
