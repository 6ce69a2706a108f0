/* A library that needs another from its own folder; nothing tells the loader
   where that one lies. */
int velmora_test_dependency_value(void);
int velmora_test_uses_dependency(void) { return velmora_test_dependency_value() + 1; }
