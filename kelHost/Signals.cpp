#include "Signals.h"

#include "OutputFile.h"

#include <csignal>
#include <pthread.h>
#include <thread>
#include <unistd.h>

namespace kel::host {

void StartSignalGuard() {
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);

    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        sigaddset(&signals, signal);
    }
    // Every thread inherits the mask, so that the waiting thread alone is told.
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::thread([signals] {
        int signal = 0;
        if (sigwait(&signals, &signal) == 0) {
            AbandonOutputs();
            _exit(128 + signal);
        }
    }).detach();
}

} // namespace kel::host
