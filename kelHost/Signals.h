/// Ending cleanly on SIGINT and SIGTERM.
#pragma once

namespace kel::host {

/// Makes the process end cleanly when it is told to: a thread of its own waits for SIGINT, SIGTERM
/// and SIGHUP, removes unfinished outputs and ends the process with 128 plus the number of the
/// signal, whatever the other threads are doing. SIGPIPE and SIGXFSZ are ignored, so that a full
/// pipe or a file-size limit is an error of the write that meets it.
///
/// Called once, before the process has other threads.
void StartSignalGuard();

} // namespace kel::host
