// A host: loads a plug-in and copies an audio file with its elements.
//
// usage: kelCopy PLUGIN INPUT OUTPUT     the output becomes a 32-bit float WAVE file
//
// The CMakeLists.txt in its directory builds it, as does
// g++ -std=c++17 kelCopy.cpp $(pkg-config --cflags --libs kelCore) -o kelCopy

#include <kelCore.h>

#include <dlfcn.h>
#include <exception>
#include <filesystem>
#include <iostream>
#include <string>

using namespace kel;

// Sinks report a failed write only in the log. The host therefore reads the records.
struct ErrorLog : ILoggerWriter {
    std::string errors;

    void Write(LogLevel level, const char* message, const char* /*context*/, const char* /*file*/,
               const char* /*line*/, const char* /*reserved*/, const char* /*threadId*/,
               const char* /*time*/) override {
        errors += level == LogLevel::Error ? std::string(message) + "\n" : "";
    }
};

template <ElementFactoryType T>
auto MakeElement(const std::string& implementation, const std::string& path) {
    auto element = ImplementElement<T>(implementation, "WAVE", nullptr);
    const auto settings = CreateParametersCollectionInstance(
        element->GetManifest()->GetCollectionValue("init_config"));
    settings->SetStringValue("FilePath", path);
    element->SetInitConfig(settings);
    return element;
}

// The elements are destroyed here, before the library with their code is unloaded.
void Copy(const std::string& input, const std::string& output) {
    auto source = MakeElement<ElementFactoryType::AudioSource>("kel.LibsndfileSource", input);
    auto sink = MakeElement<ElementFactoryType::AudioSink>("kel.LibsndfileSink", output);
    sink->DefineInput(source->GetDefinedOutput(""), "");
    while (const auto sample = source->GetSample()) {
        sink->PushSample(sample);
    }
    sink->Close(false);
}

int main(int count, char** arguments) {
    if (count != 4) {
        std::cerr << "usage: kelCopy PLUGIN INPUT OUTPUT\n";
        return 2;
    }
    const std::string plugin = std::filesystem::absolute(arguments[1]).string();
    void* library = dlopen(plugin.c_str(), RTLD_NOW | RTLD_LOCAL);
    void* entryPoint = library != nullptr ? dlsym(library, "RegisterAll") : nullptr;
    if (entryPoint == nullptr) {
        std::cerr << "kelCopy: " << dlerror() << "\n";
        return 1;
    }
    const auto log = std::make_shared<ErrorLog>();
    SetCurrentLoggerWriter(log);
    try {
        reinterpret_cast<void (*)(const char*)>(entryPoint)(plugin.c_str());
        Copy(arguments[2], arguments[3]);
    } catch (const std::exception& error) {
        log->errors += log->errors.empty() ? std::string(error.what()) + "\n" : "";
    }
    UnregisterFactories(plugin);
    dlclose(library);
    std::cerr << log->errors;
    return log->errors.empty() ? 0 : 1;
}
