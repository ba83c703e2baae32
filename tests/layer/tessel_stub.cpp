// Stands in for the device's effect library in tests: it only has to load and
// offer its entry.
extern "C" __attribute__((visibility("default"))) void Tessel_Initialize(void*) {}
