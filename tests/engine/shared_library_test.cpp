// The tests look at the very objects that the library works with.
#include <dlfcn.h>

#include "engine/engine.h"

namespace lenswire::test {
namespace {

TEST(SharedLibrary, ItsTablesAreTheOnesThatTestsSee) {
    void* library = dlopen("liblenswire.so", RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(library, nullptr) << dlerror();
    const struct {
        const char* name;
        const void* seen;
    } objects[] = {{"arrayfd", arrayfd},       {"devchannelinfo", devchannelinfo},
                   {"framecount", framecount}, {"g_recvsendlist", g_recvsendlist},
                   {"g_rs_num", &g_rs_num},    {"PC_G_EventLoopSwitch", &PC_G_EventLoopSwitch}};
    for (const auto& object : objects) EXPECT_EQ(dlsym(library, object.name), object.seen) << object.name;
    dlclose(library);
}

}  // namespace
}  // namespace lenswire::test
