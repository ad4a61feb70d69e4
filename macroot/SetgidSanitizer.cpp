// Linked into the client in sanitizer builds. To look for leaks a process traces itself, and one that is
// setgid may not; nor can it read its options from its environment. The client's own tests look for its
// leaks.

extern "C" const char* __asan_default_options() { return "detect_leaks=0"; }  // NOLINT: the sanitizer's name
