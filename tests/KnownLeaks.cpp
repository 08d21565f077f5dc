// What the leak report of a build with AddressSanitizer leaves out because it is not this project's to free.
// Visible, so that the sanitizer's library finds it in the executable.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions();

extern "C" const char* __lsan_default_suppressions() {
    return "leak:libfontconfig\n"          // what it keeps for OpenSceneGraph's search for a font
           "leak:flt::FltExportVisitor\n"  // OpenSceneGraph's writer never frees the streams that it writes through,
           "leak:flt::VertexPaletteManager\n";  // nor what it knows of their vertices
}
