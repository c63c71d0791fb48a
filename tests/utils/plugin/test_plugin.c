/* A library for the loader tests: one export to resolve. */
__attribute__((visibility("default"))) int kel_test_plugin_answer(void) { return 42; }
