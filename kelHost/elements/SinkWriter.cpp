#include "elements/SinkWriter.h"

#include "base/Errors.h"
#include "elements/ElementCall.h"

#include <ICheckInputReport.h>
#include <WorkflowStepImplementation.h>
#include <WrapperFormat.h>

#include <fmt/format.h>

#include <cstdint>
#include <exception>
#include <memory>
#include <string>

namespace kel::host {

namespace {

bool Accepts(const IAudioSink& sink, const std::shared_ptr<const IInfoContainer>& input) {
    const auto report = sink.CheckInputAndAdaptIfNecessary(input, "");
    return report == nullptr ||
           report->GetErrorType() == static_cast<std::int32_t>(CheckInputErrorType::None);
}

} // namespace

SinkWriter::SinkWriter(const Container& container, const FileName& file,
                       const std::shared_ptr<const IInfoContainer>& input) {
    WithFileContext(file, kOpenForWriting, [&] {
        CallElement(file.shown, kOpenForWriting, [&] {
            Define(file.shown, FileSink(container, file.path), input,
                   fmt::format("{} does not support this encoding; see kelhost formats",
                               container.title));
        });
    });
}

SinkWriter::SinkWriter(const std::string& shownName, bool isFile, const ElementRecipe& recipe,
                       const std::shared_ptr<const IInfoContainer>& input,
                       const std::string& refusal) {
    const auto define = [&] {
        Define(shownName, recipe, input, refusal);
    };
    WithFileContext(shownName, kOpenForWriting, [&] {
        if (isFile) {
            CallElement(shownName, kOpenForWriting, define);
        } else {
            define();
        }
    });
}

void SinkWriter::Define(const std::string& shownName, const ElementRecipe& recipe,
                        const std::shared_ptr<const IInfoContainer>& input,
                        const std::string& refusal) {
    m_element = ImplementElement<ElementFactoryType::AudioSink>(recipe.implementation, recipe.type,
                                                                nullptr);
    m_element->SetInitConfig(recipe.settings);
    if (!Accepts(*m_element, input)) {
        throw JobError(shownName, refusal);
    }
    try {
        m_element->DefineInput(input, "");
    } catch (...) {
        // It may have created its file before it failed.
        CloseQuietly();
        throw;
    }
}

SinkWriter::~SinkWriter() {
    CloseQuietly();
}

void SinkWriter::Close() {
    m_element->Close(false);
}

void SinkWriter::CloseQuietly() {
    try {
        Close();
    } catch (...) { // NOLINT(bugprone-empty-catch): another failure is being handled
    }
}

bool SinkAccepts(const Container& container, const std::shared_ptr<const IInfoContainer>& input) {
    constexpr auto kKind = ElementFactoryType::AudioSink;
    const std::string type = GetLabel(container.format);
    const auto sink = ImplementElement<kKind>(FindImplementation(kKind, type), type, nullptr);
    return Accepts(*sink, input);
}

} // namespace kel::host
