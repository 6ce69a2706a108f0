/* Test plug-in without lib_open: it loads but offers nothing to register. */
int noopen_plugin_value(void) { return 7; }
