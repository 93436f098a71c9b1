// Read by the sanitizers when a test starts: an allocation that cannot be had is NULL, as without them.
extern "C" const char *__asan_default_options();
const char *__asan_default_options() { return "allocator_may_return_null=1:detect_stack_use_after_return=0"; }
