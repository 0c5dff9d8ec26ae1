// What the sanitizers find inside libraries of others, named one by one. Linked into every test program, so
// that it holds however the program is started.

extern "C" {

const char *__lsan_default_suppressions();

const char *__lsan_default_suppressions()
{
    // Its font patterns live until the process ends.
    return "leak:libfontconfig.so\n";
}
}
