// What mingw-w64's libraries, of which the C libraries that GCC compiled need some, take for given of its start-up
// code.

// Asked by its _onexit, which nothing here calls.
extern "C" char __mingw_module_is_dll;
char __mingw_module_is_dll = 0;
