// Linked into every test program: the library's own lines go to standard
// output, as the command-line tool shows them, so tests can capture and
// compare them byte for byte. Tests of the default (no sink) uninstall it.
#include "velmora/LogSink.h"

namespace {

const bool kInstalled = (velmora::setLogSink(velmora::standardOutputLogSink()), true);

}  // namespace
