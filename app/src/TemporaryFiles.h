// The temporary output files of the process, kept where a signal handler can
// remove them: SIGINT and SIGTERM unlink every registered file and end the
// process with status 128 + signal. Registration is lock-free; the handler
// only calls unlink and _exit. Internal to the app layer.
#pragma once

namespace velmora {

// Registers `path` (at most a few at once); returns its slot, or -1 when the
// path is too long or every slot is taken (the file is then only removed by
// its owner). Installs the handlers on first use.
int registerTemporaryFile(const char* path);
void unregisterTemporaryFile(int slot);

}  // namespace velmora
