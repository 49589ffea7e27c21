/// A host that is itself a plug-in of another program.
#pragma once

namespace kel::test {

/// The findings of the host, in a plain type because the program does not know the framework.
struct LocalHostReport {
    bool errorCaughtByItsType;       ///< of a file that is missing
    bool errorCaughtAsStandardError; ///< the same one, as std::exception
    bool castToTheDataSide;          ///< of a control side, to the element's other base
    bool foreignInfoRefused;         ///< by the element, which casts what the host describes
    bool sampleIsAudio;              ///< a sample that the plug-in made, cast by the host
    unsigned frames;                 ///< that came from the copy that the sink wrote
    char failure[256];               ///< what was thrown unexpectedly, else empty
};

/// RunLocalHost: loads the plug-in, copies @p input to @p output with its elements and reads the
/// copy.
using LocalHostFunction = LocalHostReport(const char* input, const char* output);

} // namespace kel::test
