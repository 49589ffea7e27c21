/// A stand-in in front of the framework's functions, for what its real ones do not answer.
///
/// As with libsndfile's stand-in: the test program defines the functions itself, so that the
/// plug-in calls these; without an answer of the test's own the real ones answer.
#pragma once

#include <kelCore.h>

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace kel::test {

using AcceptedEncodings =
    std::map<std::string, std::vector<std::shared_ptr<const IEncodingParameters>>>;
using ReportHandle = std::shared_ptr<const ICheckInputReport>;

/// The framework's functions, as far as a test of the sink answers them.
struct FrameworkFunctions {
    std::function<std::shared_ptr<IAudioParameters>(ACodecFamily)> createAudioParameters;
    std::function<bool(WrapperFormat&, const std::string&)> fromString;
    std::function<std::string(const std::wstring&)> convertWideString;
    std::function<ReportHandle()> createNoError;
    std::function<ReportHandle(std::multiset<ContentType>)> createTrackError;
    std::function<ReportHandle(AcceptedEncodings)> createEncodingError;
};

/// The functions of the real framework.
const FrameworkFunctions& RealFramework();

/// What the test answers itself; empty functions go to the real framework.
FrameworkFunctions& FrameworkAnswers();

} // namespace kel::test
