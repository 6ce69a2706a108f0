/* A library that a test plug-in needs and that lies beside it. */
int velmora_test_dependency_value(void) { return 42; }
