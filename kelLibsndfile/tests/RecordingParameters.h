/// PCM parameters that record each setter, in the order of the calls.
///
/// A test program that links RecordingParameters.cpp and exports its symbols replaces the
/// framework's function that creates parameters, for the plug-in that it loads as well.
#pragma once

#include <string>
#include <vector>

namespace kel::test {

/// The calls so far: "CreateAudioParameters 2", "SetMuxing 2" and so on.
std::vector<std::string>& ParameterCalls();

/// The call that fails with std::domain_error, without its argument; empty for none.
std::string& FailingParameterCall();

} // namespace kel::test
