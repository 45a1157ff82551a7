// Checks of a parsed STEP file before OpenCASCADE converts it. The converter
// trusts the file: it follows assembly links recursively and dereferences
// what an entity refers to without looking, so a damaged file or an assembly
// that uses itself crashes it or recurses for ever. These checks find such
// files first, in time linear in the file's size. (The parser itself is not
// safe from every damaged file either: that is why the importer runs it in a
// child process.) Internal to the app layer; only in builds with OpenCASCADE.
#pragma once

#ifdef VELMORA_WITH_STEP

#include <string>

class XSControl_Reader;

namespace velmora {

// What is wrong with the file `reader` has parsed, as the end of an error
// message naming it, or "" when nothing is: a fault the parser found (an
// entity missing a reference or with one of the wrong type), or an assembly
// that uses itself (through its products or its representations).
std::string stepFileFault(const XSControl_Reader& reader);

}  // namespace velmora

#endif
