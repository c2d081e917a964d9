// A library that is no module.
extern "C" __attribute__((visibility("default"))) int mpbp_nothing();
int mpbp_nothing() { return 0; }
