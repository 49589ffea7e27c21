// One function more than a plug-in shows to its host.

extern "C" __attribute__((visibility("default"))) int SomethingElse();

int SomethingElse() {
    return 1;
}
