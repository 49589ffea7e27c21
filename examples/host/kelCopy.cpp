// A host: copies an audio file into a 32-bit float WAVE file, with the elements of a plug-in.
// usage: kelCopy PLUGIN INPUT OUTPUT
// build: g++ -std=c++17 kelCopy.cpp $(pkg-config --cflags --libs kelCore) -o kelCopy

#include <iostream>
#include <kelCore.h>
#include <sstream>

int main(int count, char** arguments) {
    if (count != 4) {
        std::cerr << "usage: kelCopy PLUGIN INPUT OUTPUT\n";
        return 2;
    }
    std::ostringstream errors; // sinks report a failed write only in the log
    kel::SetCurrentLoggerWriter(kel::CreateStreamLoggerWriter(kel::LogLevel::Error, errors));
    try {
        const auto plugin = kel::LoadPlugin(arguments[1]); // outlives its elements
        const auto source = kel::MakeSource(arguments[2]);
        errors.str(""); // another source may have refused the file
        const auto sink = kel::ImplementElement<kel::ElementFactoryType::AudioSink>(
            "kel.LibsndfileSink", "WAVE", nullptr);
        const auto declared = sink->GetManifest()->GetCollectionValue("init_config");
        const auto settings = kel::CreateParametersCollectionInstance(declared);
        settings->SetStringValue("FilePath", arguments[3]);
        sink->SetInitConfig(settings);
        sink->DefineInput(source->GetDefinedOutput(""), "");
        while (const auto sample = source->GetSample()) {
            sink->PushSample(sample);
        }
        sink->Close(false);
    } catch (const std::exception& error) {
        errors.str(std::string("kelCopy: ") + error.what() + "\n"); // instead of its records
    }
    kel::SetCurrentLoggerWriter(nullptr);
    std::cerr << errors.str();
    return errors.str().empty() ? 0 : 1;
}
