#include <dlfcn.h>

#include <gtest/gtest.h>

namespace agent::orvi::remoting::test {
namespace {

TEST(RemotingLibrary, StaysLoadedBecauseTheRegistryKeepsAHookOfIt) {
    const char* const path = ORVI_REMOTING_LIBRARY;
    void* const library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    EXPECT_EQ(dlclose(library), 0);
    EXPECT_NE(dlopen(path, RTLD_NOW | RTLD_NOLOAD), nullptr);
}

} // namespace
} // namespace agent::orvi::remoting::test
