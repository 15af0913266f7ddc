// What a user waits for when a container is opened: reading the file, and the first and later uses of a key.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "ork/csp.h"

namespace {

// A container in a folder of its own, which goes with it.
class TestContainer {
public:
    explicit TestContainer(int keys) {
        std::string pattern = (std::filesystem::temp_directory_path() / "nal-bench-XXXXXX").string();
        m_folder = mkdtemp(pattern.data());
        m_path = m_folder + "/container";
        unsigned long prov = 0;
        ORKAcquireContext(&prov, m_path.c_str(), ORK_PROVIDER_NAME, ORK_PROVIDER_TYPE, ORK_OPEN_NEW);
        ORKSetProvParam(prov, ORK_PARAM_PASSWORD, "password", 0);
        for (int i = 0; i < keys; ++i) {
            unsigned long key = 0;
            ORKGenKey(prov, ORK_KEY_SIGNATURE, 0, &key);
            ORKDestroyKey(key);
        }
        ORKReleaseContext(prov);
    }
    TestContainer(const TestContainer&) = delete;
    TestContainer& operator=(const TestContainer&) = delete;
    ~TestContainer() { std::filesystem::remove_all(m_folder); }

    unsigned long Open() const {
        unsigned long prov = 0;
        ORKAcquireContext(&prov, m_path.c_str(), ORK_PROVIDER_NAME, ORK_PROVIDER_TYPE, 0);
        ORKSetProvParam(prov, ORK_PARAM_PASSWORD, "password", 0);
        return prov;
    }

private:
    std::string m_folder;
    std::string m_path;
};

bool OpenKey(unsigned long prov) {
    unsigned long key = 0;
    return ORKGetUserKey(prov, ORK_KEY_SIGNATURE, &key) && ORKDestroyKey(key);
}

void OpenContainer(benchmark::State& state) {
    const TestContainer container(static_cast<int>(state.range(0)));
    for (auto _ : state)
        ORKReleaseContext(container.Open());
}
BENCHMARK(OpenContainer)->Arg(1)->Arg(20);

// With the derivation of the container's key from the password.
void FirstKey(benchmark::State& state) {
    const TestContainer container(1);
    for (auto _ : state) {
        const unsigned long prov = container.Open();
        if (!OpenKey(prov)) state.SkipWithError("no key");
        ORKReleaseContext(prov);
    }
}
BENCHMARK(FirstKey);

void NextKey(benchmark::State& state) {
    const TestContainer container(static_cast<int>(state.range(0)));
    const unsigned long prov = container.Open();
    for (auto _ : state) {
        if (!OpenKey(prov)) state.SkipWithError("no key");
    }
    ORKReleaseContext(prov);
}
BENCHMARK(NextKey)->Arg(1)->Arg(20);

}  // namespace
