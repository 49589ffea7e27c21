/// Sinks as the host uses them: created by name, with a defined input, and closed in any case.
#pragma once

#include "audio/Formats.h"
#include "base/FileName.h"
#include "elements/Elements.h"

#include <IAudioSink.h>
#include <IInfoContainer.h>

#include <memory>
#include <string>

namespace kel::host {

/// A sink with its input defined. Closes it at the end, unless Close was called. One thread at a
/// time.
class SinkWriter {
public:
    /// Creates the first registered sink for a container, verifies that it accepts the input, and
    /// defines that, which creates the file.
    /// @throws JobError when no sink is registered, the input is refused or the file cannot be
    /// created
    SinkWriter(const Container& container, const FileName& file,
               const std::shared_ptr<const IInfoContainer>& input);

    /// Creates a sink, verifies that it accepts the input, and defines that.
    /// @param shownName the file that it writes, or the sink itself, as the user knows it
    /// @param isFile whether it writes a file; the words of any other sink are in its errors,
    /// because the host knows no cause
    /// @param refusal the error when it does not accept the input
    /// @throws JobError when it does not, or fails
    SinkWriter(const std::string& shownName, bool isFile, const ElementRecipe& recipe,
               const std::shared_ptr<const IInfoContainer>& input, const std::string& refusal);

    ~SinkWriter();
    SinkWriter(const SinkWriter&) = delete;
    SinkWriter& operator=(const SinkWriter&) = delete;

    IAudioSink& Element() const { return *m_element; }

    /// Finishes the file.
    void Close();

private:
    void Define(const std::string& shownName, const ElementRecipe& recipe,
                const std::shared_ptr<const IInfoContainer>& input, const std::string& refusal);
    void CloseQuietly();

    std::shared_ptr<IAudioSink> m_element;
};

/// Returns whether the sink for a container accepts an input. No file is created.
/// @throws JobError when no sink is registered, KELRuntimeError when the sink cannot judge the
/// input
bool SinkAccepts(const Container& container, const std::shared_ptr<const IInfoContainer>& input);

} // namespace kel::host
