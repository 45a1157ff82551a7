// The temporary output files of the process, kept where a signal handler can
// remove them: SIGINT and SIGTERM unlink every registered file and end the
// process with status 128 + signal. Registration is lock-free; the handler
// only calls unlink and _exit. Internal to the app layer.
#pragma once

#include <string>

namespace velmora {

// Creates a temporary file from the mkstemp `pattern` (rewritten with the
// name made) and registers it, with SIGINT and SIGTERM held back in between
// so that an interrupt never finds the file made but not yet registered.
// Returns the open descriptor (or -1, errno set, when mkstemp fails) and the
// slot in `slot`: -1 when the path is too long or every slot is taken (the
// file is then only removed by its owner). Installs the handlers on first use.
int createRegisteredTemporaryFile(std::string& pattern, int& slot);

// Frees the slot of a file that is gone or renamed (-1 is ignored).
void unregisterTemporaryFile(int slot);

}  // namespace velmora
