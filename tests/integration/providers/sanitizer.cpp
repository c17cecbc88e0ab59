// What the leak checker is told about these tests: a set that a test still holds when it stops the
// library cannot be freed any more, since every handle is refused from then on.
// The checker's library looks the name up, so it must be visible.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
  return "leak:PsCreatePropset\n";
}
