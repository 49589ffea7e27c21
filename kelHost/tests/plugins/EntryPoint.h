/// The function that a host looks for in a plug-in.
#pragma once

extern "C" __attribute__((visibility("default"))) void RegisterAll(const char* name);
