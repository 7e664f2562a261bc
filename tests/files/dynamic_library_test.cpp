// Dynamic libraries, with real ones built for these tests.

#include "vellcore/dynamic_library.h"

#include <dlfcn.h>
#include <pthread.h>

#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "support/log_capture.h"
#include "support/temporary_folder.h"
#include "vellcore/file_operations.h"

namespace {

class DynamicLibrary : public testing::Test {
protected:
    /// Copies a library built for these tests into the folder, under a name. @return  its path.
    std::string install(const char* library, const std::string& name) const {
        const std::string path = folder / name;
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::filesystem::copy_file(library, path);
        return path;
    }
    static bool is_loaded(const std::string& path) {
        void* handle = dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
        if (handle != nullptr) dlclose(handle);
        return handle != nullptr;
    }
    TemporaryFolder folder;
    LogCapture log;
};

TEST_F(DynamicLibrary, StaysLoadedUntilTheLastReferenceIsGone) {
    const std::string path = install(VELL_PLAIN_PLUGIN, "plain.so");
    void* handle = vl_open_library(path.c_str(), 0);
    ASSERT_NE(handle, nullptr) << log.text();
    EXPECT_EQ(vl_open_library(path.c_str(), 0), handle);
    const auto plain_value = reinterpret_cast<int (*)()>(vl_resolve_symbol(handle, "plain_value"));
    ASSERT_NE(plain_value, nullptr);
    EXPECT_EQ(plain_value(), 42);
    EXPECT_EQ(vl_resolve_symbol(handle, "no_such_symbol"), nullptr);
    EXPECT_EQ(vl_resolve_symbol(nullptr, "malloc"), nullptr);
    EXPECT_EQ(vl_resolve_symbol(handle, nullptr), nullptr);
    vl_close_library(handle);
    EXPECT_TRUE(is_loaded(path));
    vl_close_library(this);
    vl_close_library(nullptr);
    EXPECT_TRUE(is_loaded(path));
    vl_close_library(handle, true);
    EXPECT_FALSE(is_loaded(path));
    vl_close_library(handle);
    EXPECT_EQ(log.text(), "");
}

TEST_F(DynamicLibrary, SharesItsSymbolsOnRequest) {
    const std::string path = install(VELL_PLAIN_PLUGIN, "plain.so");
    void* handle = vl_open_library(path.c_str(), 1 | 4);
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "plain_value"), nullptr);
    vl_close_library(handle);
    handle = vl_open_library(path.c_str(), 2);
    EXPECT_NE(dlsym(RTLD_DEFAULT, "plain_value"), nullptr);
    vl_close_library(handle);
}

TEST_F(DynamicLibrary, IsFoundInTheCurrentFolderAndAlongTheSearchList) {
    const std::string here = install(VELL_PLAIN_PLUGIN, "here/plain.so");
    const std::string listed = install(VELL_PLAIN_PLUGIN, "data/Settings/listed.so");
    setenv("LIBRARY_TEST_DATA", (folder / "data").c_str(), 1);
    file_initialize("LibraryTest", "LIBRARY_TEST_DATA");
    std::filesystem::current_path(folder / "here");
    for (const auto& [name, path] : {std::pair{"plain.so", here}, {"listed.so", listed}}) {
        void* handle = vl_open_library(name, 0);
        EXPECT_NE(handle, nullptr) << name;
        EXPECT_TRUE(is_loaded(path)) << name;
        vl_close_library(handle);
        EXPECT_FALSE(is_loaded(path)) << name;
    }
    std::filesystem::current_path("/");
    EXPECT_EQ(vl_open_library("plain.so", 0), nullptr);
    EXPECT_EQ(vl_open_library("", 0), nullptr);
    EXPECT_EQ(vl_open_library(nullptr, 0), nullptr);
    EXPECT_EQ(log.text(), "");
}

TEST_F(DynamicLibrary, SaysWhyItCannotBeLoaded) {
    const std::string path = folder.write("bro%sken%n.so", "this is no library");
    EXPECT_EQ(vl_open_library(path.c_str(), 0), nullptr);
    const std::vector<std::string> lines = log.lines();
    ASSERT_EQ(lines.size(), 2u) << log.text();
    EXPECT_EQ(lines[0], "WARN : Can't open module: '" + path + "'");
    EXPECT_EQ(lines[1].rfind(": " + path + ": ", 0), 0u) << lines[1];
    msg_setlevel(MSG_ERROR);
    EXPECT_EQ(vl_open_library(path.c_str(), 0), nullptr);
    EXPECT_EQ(log.line_count(), 2);
}

TEST_F(DynamicLibrary, TakesNamesUpTo1023Bytes) {
    const std::string path = install(VELL_PLAIN_PLUGIN, "plain.so");
    const auto name_of_length = [&](size_t length) {
        std::string name = folder.path();
        while (name.size() + sizeof "/plain.so" - 1 < length)
            name += '/';
        return name + "/plain.so";
    };
    void* handle = vl_open_library(name_of_length(1023).c_str(), 0);
    EXPECT_NE(handle, nullptr);
    EXPECT_EQ(vl_open_library(name_of_length(1023).c_str(), 0), handle);
    EXPECT_EQ(vl_open_library(name_of_length(1024).c_str(), 0), nullptr);
    vl_close_library(handle);
    vl_close_library(handle);
    EXPECT_FALSE(is_loaded(path));
    EXPECT_EQ(log.text(), "");
}

TEST_F(DynamicLibrary, RunsAnEntry) {
    const std::string path = install(VELL_PLAIN_PLUGIN, "plain.so");
    const std::string name = folder / "plain";
    char first[] = "first", second[] = "second";
    char* arguments[] = {first, second, nullptr};
    EXPECT_EQ(vl_rundll(name.c_str(), "count_arguments", 2, arguments), 2);
    EXPECT_STREQ(vl_get_main_dll_entry_name(), "count_arguments");
    EXPECT_EQ(vl_rundll(name.c_str(), "throws", 2, arguments), -2);
    EXPECT_EQ(log.text(), "");
    EXPECT_EQ(vl_rundll(name.c_str(), "no%sentry", 2, arguments), -1);
    EXPECT_EQ(log.lines(), std::vector<std::string>{"ERROR: RUNDLL: Entry 'no%sentry' not found"});
    EXPECT_STREQ(gMainDLLEntryName, "no%sentry");
    EXPECT_EQ(vl_rundll(name.c_str(), nullptr, 2, arguments), -1);
    EXPECT_EQ(vl_rundll((folder / "missing").c_str(), "throws", 2, arguments), -1);
    EXPECT_EQ(vl_rundll(nullptr, "throws", 2, arguments), -1);
    EXPECT_EQ(vl_rundll(std::string(1021, 'x').c_str(), "throws", 2, arguments), -1);
    EXPECT_FALSE(is_loaded(path));
}

TEST_F(DynamicLibrary, IsClosedWhenItsEntryEndsTheThread) {
    const std::string path = install(VELL_PLAIN_PLUGIN, "plain.so");
    static std::string name;
    name = folder / "plain";
    pthread_t thread;
    int returned = 0;
    ASSERT_EQ(pthread_create(
                  &thread, nullptr,
                  [](void* argument) -> void* {
                      vl_rundll(name.c_str(), "ends_its_thread", 0, nullptr);
                      *static_cast<int*>(argument) = 1;
                      return nullptr;
                  },
                  &returned),
              0);
    pthread_join(thread, nullptr);
    EXPECT_EQ(returned, 0);
    EXPECT_FALSE(is_loaded(path));
}

TEST_F(DynamicLibrary, MayOpenAnotherFromItsConstructor) {
    const std::string inner = install(VELL_PLAIN_PLUGIN, "plain.so");
    const std::string outer = install(VELL_NESTING_PLUGIN, "nesting.so");
    setenv("NESTING_OPENS", inner.c_str(), 1);
    void* handle = vl_open_library(outer.c_str(), 0);
    ASSERT_NE(handle, nullptr);
    EXPECT_TRUE(is_loaded(inner));
    vl_close_library(handle);
    EXPECT_FALSE(is_loaded(outer));
    EXPECT_FALSE(is_loaded(inner));
}

TEST_F(DynamicLibrary, MayOpenItselfFromItsConstructor) {
    const std::string path = install(VELL_NESTING_PLUGIN, "nesting.so");
    setenv("NESTING_OPENS", path.c_str(), 1);
    void* handle = vl_open_library(path.c_str(), 0);
    ASSERT_NE(handle, nullptr);
    vl_close_library(handle);
    EXPECT_TRUE(is_loaded(path));
    vl_close_library(handle);
    EXPECT_FALSE(is_loaded(path));
}

TEST_F(DynamicLibrary, LosesOneReferenceAtShutdown) {
    const std::string once = install(VELL_NESTING_PLUGIN, "once.so");
    const std::string twice = install(VELL_PLAIN_PLUGIN, "twice.so");
    const std::string inner = install(VELL_PLAIN_PLUGIN, "inner.so");
    vl_lib_initialize();
    setenv("NESTING_OPENS", inner.c_str(), 1);
    EXPECT_NE(vl_open_library(once.c_str(), 0), nullptr);
    void* handle = vl_open_library(twice.c_str(), 0);
    EXPECT_EQ(vl_open_library(twice.c_str(), 0), handle);
    vl_lib_closedownall();
    EXPECT_FALSE(is_loaded(once));
    EXPECT_FALSE(is_loaded(inner));
    EXPECT_TRUE(is_loaded(twice));
    vl_close_library(handle);
    EXPECT_TRUE(is_loaded(twice)) << "the table is gone, so the handle is unknown";
    vl_lib_closedownall();
    dlclose(handle);
    EXPECT_FALSE(is_loaded(twice));
}

TEST_F(DynamicLibrary, IsLoadedOnceByManyThreads) {
    const std::string path = install(VELL_PLAIN_PLUGIN, "plain.so");
    constexpr int k_threads = 6, k_rounds = 50;
    std::vector<void*> kept(k_threads);
    std::vector<std::thread> threads;
    for (void*& slot : kept) {
        threads.emplace_back([&slot, &path] {
            for (int round = 0; round < k_rounds; ++round) {
                void* handle = vl_open_library(path.c_str(), 0);
                if (vl_resolve_symbol(handle, "plain_value") == nullptr) return;
                vl_close_library(handle);
            }
            slot = vl_open_library(path.c_str(), 0);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(kept, std::vector<void*>(k_threads, kept[0]));
    EXPECT_NE(kept[0], nullptr);
    for (int i = 1; i < k_threads; ++i)
        vl_close_library(kept[0]);
    EXPECT_TRUE(is_loaded(path));
    vl_close_library(kept[0]);
    EXPECT_FALSE(is_loaded(path));
}

TEST_F(DynamicLibrary, WarnsOfSlowLoading) {
    const std::string path = install(VELL_NESTING_PLUGIN, "nesting.so");
    setenv("NESTING_MILLISECONDS", "1010", 1);
    void* handle = vl_open_library(path.c_str(), 0);
    const std::vector<std::string> lines = log.lines();
    ASSERT_EQ(lines.size(), 1u) << log.text();
    EXPECT_EQ(lines[0].rfind("WARN : Library loader took ", 0), 0u);
    EXPECT_NE(lines[0].find(" for: " + path), std::string::npos);
    vl_close_library(handle);
}

}  // namespace
