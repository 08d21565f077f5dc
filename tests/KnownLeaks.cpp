// Read by LeakSanitizer where the tests are built with it.

// What fontconfig keeps for OpenSceneGraph's search for a font.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libfontconfig\n";
}
