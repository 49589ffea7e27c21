// A plug-in that was built against a missing library.

extern "C" __attribute__((visibility("default"))) void RegisterAll(const char* name);

extern "C" void kelSymbolThatIsMissing();

void RegisterAll(const char* /*name*/) {
    kelSymbolThatIsMissing();
}
