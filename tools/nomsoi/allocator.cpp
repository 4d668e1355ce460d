// The allocator's configuration, read by jemalloc when nomsoi starts. One arena for all threads:
// nomsoi runs a few (the module's, those that copy ahead of it, the generator's writers), each
// thread keeps its own cache of small objects anyway, and more arenas only hold more memory that
// is free. The symbol must be visible for jemalloc to find it in the program.
extern "C" {
__attribute__((visibility("default"))) const char* malloc_conf = "narenas:1";
}
