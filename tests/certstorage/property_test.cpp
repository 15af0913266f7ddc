// Properties of certificate contexts: every id, and the block in which a key provider info is stored.
#include <algorithm>
#include <cstring>
#include <cwchar>
#include <memory>
#include <random>

#include "certstorage/cert_context.h"
#include "certstorage/key_prov_info.h"
#include "certstorage/store_test.h"
#include "support/temp_folder.h"

namespace {

using namespace nal_test;

BOOL Get(const CertPtr& context, DWORD id, void* data, DWORD* size) {
    return CertGetCertificateContextProperty(context.get(), id, data, size);
}

TEST(CertProperty, EveryIdByItsRule) {
    const StorePtr store = OpenMemory();
    const CertPtr context = Added(store);
    const IdentObj value = Filled(9, 11);
    const CRYPT_DATA_BLOB blob = Blob(value);
    const DWORD spec = AT_KEYEXCHANGE;
    // b stored bytes, h handle, i key provider info, s key spec, a access state, - nothing
    const std::string kinds = "-hibb-s--bbbbbabb---" "bbbbbbbbbbb---------" "--------------------" "----bb----bb----b---" "-bbbb";
    for (DWORD id = 0; id < 120; ++id) {
        SCOPED_TRACE(id);
        const char kind = id < kinds.size() ? kinds[id] : '-';
        DWORD size = 0;
        unsigned char buffer[64] = {};
        EXPECT_EQ(kind == 'h' || kind == 'a', Get(context, id, nullptr, &size) != FALSE);
        if (kind == 'i') continue;  // below
        const void* data = kind == 's' ? static_cast<const void*>(&spec) : &blob;
        EXPECT_EQ(kind == 'b' || kind == 's', CertSetCertificateContextProperty(context.get(), id, 0, data) != FALSE);
        if (kind != 'b' && kind != 's') continue;
        const DWORD stored = kind == 'b' ? 11 : 4;
        EXPECT_TRUE(Get(context, id, nullptr, &size));
        EXPECT_EQ(stored, size);
        size = stored - 1;
        EXPECT_TRUE(Get(context, id, buffer, &size)) << "a short buffer only reports the size";
        EXPECT_EQ(stored, size);
        EXPECT_EQ(0, buffer[0]);
        EXPECT_TRUE(Get(context, id, buffer, &size));
        EXPECT_EQ(0, std::memcmp(buffer, kind == 'b' ? value.GetData() : reinterpret_cast<const unsigned char*>(&spec), stored));
    }
}

TEST(CertProperty, FixedValuesNeedALargerBuffer) {
    const StorePtr store = OpenMemory();
    const CertPtr bound = Added(store);
    const CertPtr loose = MakeCert(CertBuilder().Build());
    const struct {
        DWORD id;
        DWORD offered, reported;
        bool written;
    } cases[] = {{1, 0, 8, false}, {1, 8, 8, false}, {1, 9, 9, true}, {14, 0, 4, false}, {14, 4, 4, false}, {14, 5, 4, true}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.id) + " " + std::to_string(c.offered));
        unsigned char buffer[16] = {0xEE};
        DWORD size = c.offered;
        EXPECT_TRUE(Get(bound, c.id, buffer, &size));
        EXPECT_EQ(c.reported, size);
        EXPECT_EQ(c.written, buffer[0] != 0xEE);
    }
    for (const CertPtr* context : {&bound, &loose}) {
        DWORD state[2] = {99, 99};
        DWORD size = sizeof state;
        EXPECT_TRUE(Get(*context, 14, state, &size));
        EXPECT_EQ(context == &bound ? 1U : 0U, state[0]);
    }
}

struct Parts {
    std::wstring container = L"container";
    std::wstring provider = L"provider";
    std::string pin = "1234";
    std::string other = "some data";
    CRYPT_KEY_PROV_PARAM params[3] = {};
    CRYPT_KEY_PROV_INFO info{};

    Parts() {
        params[0] = {5, reinterpret_cast<BYTE*>(other.data()), static_cast<DWORD>(other.size()), 1};
        params[1] = {PP_SIGNATURE_PIN_PARAM, reinterpret_cast<BYTE*>(pin.data()), static_cast<DWORD>(pin.size()), 2};
        params[2] = {6, nullptr, 0, 3};
        info = {container.data(), provider.data(), 2, 7, 3, params, AT_KEYEXCHANGE};
    }
};

struct alignas(8) Buffer {
    unsigned char bytes[1024];
    const CRYPT_KEY_PROV_INFO& Info() const { return *reinterpret_cast<const CRYPT_KEY_PROV_INFO*>(bytes); }
};

TEST(KeyProvInfo, ComesBackAsItWasSet) {
    const TempFolder folder;
    for (const bool inFile : {false, true}) {
        SCOPED_TRACE(inFile);
        const StorePtr store = inFile ? OpenFile(folder.File("s")) : OpenMemory();
        const CertPtr context = Added(store);
        const Parts parts;
        ASSERT_TRUE(CertSetCertificateContextProperty(context.get(), 2, 0, &parts.info));
        DWORD size = 0;
        ASSERT_TRUE(Get(context, 2, nullptr, &size));
        // A file's block lacks the PIN parameter and its data.
        EXPECT_EQ((9 + 8 + 6 * (inFile ? 2 : 3) + 14) * 4 + (inFile ? 9 : 13), static_cast<int>(size));
        Buffer buffer;
        DWORD small = size - 1;
        EXPECT_FALSE(Get(context, 2, buffer.bytes, &small));
        ASSERT_TRUE(Get(context, 2, buffer.bytes, &size));
        const CRYPT_KEY_PROV_INFO& info = buffer.Info();
        EXPECT_STREQ(L"container", info.pwszContainerName);
        EXPECT_STREQ(L"provider", info.pwszProvName);
        EXPECT_EQ(2U, info.dwProvType);
        EXPECT_EQ(7U, info.dwFlags);
        EXPECT_EQ(1U, info.dwKeySpec);
        ASSERT_EQ(inFile ? 2U : 3U, info.cProvParam);
        EXPECT_EQ("some data", Text({info.rgProvParam[0].pbData, info.rgProvParam[0].cbData}));
        EXPECT_EQ(6U, info.rgProvParam[info.cProvParam - 1].dwParam);
        EXPECT_EQ(nullptr, info.rgProvParam[info.cProvParam - 1].pbData);
        EXPECT_TRUE(inFile || Text({info.rgProvParam[1].pbData, info.rgProvParam[1].cbData}) == "1234");
    }
    // Not in the file either, wherever Berkeley DB leaves bytes.
    const auto file = ReadFile(folder.File("s"));
    const std::string pin = "1234";
    EXPECT_EQ(file.end(), std::search(file.begin(), file.end(), pin.begin(), pin.end()));
}

TEST(KeyProvInfo, TakesNoNamesAndRefusesDataWithoutBytes) {
    const CertPtr context = MakeCert(CertBuilder().Build());
    CRYPT_KEY_PROV_INFO empty{};
    EXPECT_TRUE(CertSetCertificateContextProperty(context.get(), 2, 0, &empty));
    Buffer buffer;
    DWORD size = sizeof buffer.bytes;
    ASSERT_TRUE(Get(context, 2, buffer.bytes, &size));
    EXPECT_EQ(56U, size);
    EXPECT_STREQ(L"", buffer.Info().pwszContainerName);
    EXPECT_EQ(nullptr, buffer.Info().rgProvParam);

    CRYPT_KEY_PROV_INFO noRecords{};
    noRecords.cProvParam = 1;
    EXPECT_FALSE(CertSetCertificateContextProperty(context.get(), 2, 0, &noRecords));
    CRYPT_KEY_PROV_PARAM noBytes{1, nullptr, 4, 0};
    noRecords.rgProvParam = &noBytes;
    EXPECT_FALSE(CertSetCertificateContextProperty(context.get(), 2, 0, &noRecords));
    CRYPT_DATA_BLOB noData{4, nullptr};
    EXPECT_FALSE(CertSetCertificateContextProperty(context.get(), 3, 0, &noData));
}

// A stored block may come from anybody. Whatever is in it, getting it fails or gives pointers into the buffer.
TEST(KeyProvInfo, HostileBlocksNeverPointOutside) {
    const StorePtr store = OpenMemory();
    const CertPtr context = Added(store);
    auto& raw = *nal::CertStore::FromHandle(store.get());
    const nal::KeyIdentifier& key = nal::CertContext::From(context.get())->Key();
    const Parts parts;
    auto flat = nal::FlattenKeyProvInfo(parts.info, true);
    ASSERT_TRUE(flat);
    const std::string good = Text(flat->View());
    std::mt19937 random(7);
    int read = 0;
    for (int round = 0; round < 20000; ++round) {
        std::string block = good;
        for (unsigned n = random() % 3 + 1; n != 0; --n) {
            block[random() % 130] = static_cast<char>(random() % 4 != 0 ? random() % 64 : random());
        }
        if (random() % 4 == 0) block.resize(random() % (block.size() + 1));
        ASSERT_EQ(0, raw.storeProp(key, 2, AsView(block)));
        // Exactly as long as the block, so that the address sanitizer sees what lies beyond.
        const std::unique_ptr<unsigned char[]> out(new unsigned char[block.size() + 1]);
        DWORD size = static_cast<DWORD>(block.size());
        if (Get(context, 2, out.get(), &size) == FALSE) continue;
        ++read;
        CRYPT_KEY_PROV_INFO info;
        std::memcpy(&info, out.get(), sizeof info);
        std::size_t sum = std::wcslen(info.pwszContainerName) + std::wcslen(info.pwszProvName);
        for (DWORD i = 0; i < info.cProvParam; ++i) {
            CRYPT_KEY_PROV_PARAM param;
            std::memcpy(&param, reinterpret_cast<const unsigned char*>(info.rgProvParam) + i * sizeof param, sizeof param);
            for (DWORD b = 0; b < param.cbData; ++b) sum += param.pbData[b];
        }
        ASSERT_LT(sum, 1000000U);
    }
    EXPECT_GT(read, 100);
}

}  // namespace
