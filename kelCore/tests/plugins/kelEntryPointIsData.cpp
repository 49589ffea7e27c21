// A library whose entry point is no function.

extern "C" {
extern __attribute__((visibility("default"))) const int RegisterAll;
const int RegisterAll = 1;
}
