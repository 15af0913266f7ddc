#include "certstorage/tree.h"

#include <map>
#include <optional>
#include <random>

#include "certstorage/tree_verify.h"
#include "certstorage/store_test.h"
#include "support/temp_folder.h"

namespace {

using namespace nal;
using namespace nal_test;

TEST(RecordKey, OrdersByIdentifierThenSerialThenSignedKind) {
    const std::string cert = Text(RecordKey::Cert(Identifier(1)).Bytes());
    const std::vector<std::string> ordered = {
        "",
        Text(RecordKey{Identifier(1), {}, 0xFFFFFFFF}.Bytes()),  // a kind word is signed
        cert.substr(0, 20),                                      // keys of other programs may have other lengths
        cert,
        cert + "x",
        Text(RecordKey{Identifier(1), {}, kKindCertProp | 2}.Bytes()),
        Text(RecordKey{Identifier(1), Serial(1), kKindCrl}.Bytes()),
        Text(RecordKey{Identifier(1), Serial(1), kKindCrlProp | 3}.Bytes()),
        Text(RecordKey{Identifier(1), Serial(2), kKindCrl}.Bytes()),
        Text(RecordKey::Cert(Identifier(1, 1)).Bytes()),
        Text(RecordKey::Cert(Identifier(2)).Bytes()),
        Text(RecordKey::Cert(Identifier(0xFF)).Bytes()),
    };
    for (std::size_t i = 0; i < ordered.size(); ++i) {
        EXPECT_EQ(0, CompareKeys(AsView(ordered[i]), AsView(ordered[i])));
        for (std::size_t k = i + 1; k < ordered.size(); ++k) {
            EXPECT_LT(CompareKeys(AsView(ordered[i]), AsView(ordered[k])), 0) << i << ' ' << k;
            EXPECT_GT(CompareKeys(AsView(ordered[k]), AsView(ordered[i])), 0) << i << ' ' << k;
        }
    }
}

TEST(RecordKey, PrefixIsTheIdentifierOrAll) {
    const RecordKey a = RecordKey::Cert(Identifier(1));
    const RecordKey b = RecordKey::Cert(Identifier(2));
    const RecordKey prop = RecordKey::Prop(Identifier(1), 2, nullptr);
    EXPECT_EQ(20U, KeyPrefix(a.Bytes(), b.Bytes()));
    EXPECT_EQ(40U, KeyPrefix(a.Bytes(), prop.Bytes()));
    EXPECT_EQ(8U, KeyPrefix(a.Bytes(), b.Bytes().Sub(0, 8)));
}

// A tree and an ordered map, which agree on the outcome of every random step.
class Model {
public:
    Model(Tree& tree, unsigned seed, unsigned keys) : m_tree(tree), m_random(seed), m_keys(keys) {}

    void TakeSteps(int count) {
        for (int i = 0; i < count; ++i) {
            SCOPED_TRACE(i);
            ASSERT_NO_FATAL_FAILURE(TakeStep());
        }
        for (const auto& [key, value] : m_map) {
            asnt::View found;
            ASSERT_EQ(kTreeOk, m_tree.Get(key, found));
            ASSERT_EQ(value, Text(found));
        }
    }

private:
    void TakeStep() {
        RecordKey key;
        const unsigned pick = m_random() % m_keys;
        key.identifier[0] = static_cast<unsigned char>(pick % 3);
        key.identifier[19] = static_cast<unsigned char>(pick / 3 % 40);
        key.crlSerial[15] = static_cast<unsigned char>(pick / 120 % 2);
        key.kind = pick / 240 % 2 == 0 ? kKindCert : kKindCertProp | pick / 480;
        const std::string value(m_random() % 200, static_cast<char>('a' + m_random() % 26));
        // Two walks, of which neither disturbs the other, whether its record goes or others come behind the last.
        const unsigned turn = m_random() % 2;
        Walk& walk = m_walks[turn];
        Walk& other = m_walks[1 - turn];
        const auto next = walk.at ? m_map.upper_bound(*walk.at) : m_map.begin();
        const auto place = m_map.lower_bound(key);
        const bool present = place != m_map.end() && CompareKeys(place->first.Bytes(), key.Bytes()) == 0;
        asnt::View found;
        Record record;
        switch (m_random() % 10) {
            case 0:
                ASSERT_EQ(present ? kTreeOk : kTreeSpecial, m_tree.Get(key, found));
                ASSERT_EQ(present ? place->second : "", Text(found));
                break;
            case 1:
                walk = {};
                ASSERT_EQ(place != m_map.end() ? kTreeOk : kTreeSpecial, m_tree.Seek(walk.position, key, record));
                if (place == m_map.end()) break;
                ASSERT_EQ(place->second, Text(record.value));
                walk.at = place->first;
                break;
            case 2:
                walk = {};
                ASSERT_EQ(m_map.empty() ? kTreeSpecial : kTreeOk, m_tree.MoveToLast(walk.position));
                if (!m_map.empty()) walk.at = m_map.rbegin()->first;
                break;
            case 3:
            case 4:
                ASSERT_EQ(next != m_map.end() ? kTreeOk : kTreeSpecial, m_tree.Move(walk.position, Step::Next, record));
                if (next == m_map.end()) break;
                ASSERT_EQ(next->second, Text(record.value));
                walk.at = next->first;
                ASSERT_EQ(kTreeError, m_tree.DeleteAt(other.position)) << "the cursor stands elsewhere";
                if (m_random() % 4 != 0) break;
                ASSERT_EQ(kTreeOk, m_tree.DeleteAt(walk.position));
                m_map.erase(next);
                break;
            case 5:
            case 6:
                ASSERT_EQ(present ? kTreeOk : kTreeSpecial, m_tree.Delete(key));
                m_map.erase(key);
                break;
            case 7:
                ASSERT_EQ(present ? kTreeSpecial : kTreeOk, m_tree.Put(key, AsView(value), PutMode::KeepExisting));
                m_map.emplace(key, value);
                break;
            default:
                ASSERT_EQ(kTreeOk, m_tree.Put(key, AsView(value), PutMode::Overwrite));
                m_map[key] = value;
        }
    }

    struct Less {
        bool operator()(const RecordKey& a, const RecordKey& b) const { return CompareKeys(a.Bytes(), b.Bytes()) < 0; }
    };
    struct Walk {
        Position position;
        std::optional<RecordKey> at;
    };
    Tree& m_tree;
    std::mt19937 m_random;
    const unsigned m_keys;
    std::map<RecordKey, std::string, Less> m_map;
    Walk m_walks[2];
};

// With the store's settings every key lies on an overflow page; with others Berkeley DB cuts keys with the prefix function.
TEST(Tree, AgreesWithAnOrderedMapWhateverThePageSettings) {
    const TreeSettings settings[] = {{}, {0, 0, 512}, {0, 2, 1024}, {0x100000, 4, 4096}};
    for (const auto& setting : settings) {
        SCOPED_TRACE(setting.minKeysPerPage);
        const TempFolder folder;
        Tree tree(setting);
        ASSERT_EQ(0, tree.OpenFile(folder.File("tree")));
        Model model(tree, 20, 2400);
        for (int round = 0; round < 6; ++round) {
            ASSERT_NO_FATAL_FAILURE(model.TakeSteps(1000));
            ASSERT_EQ(0, tree.Reopen());
        }
        ASSERT_EQ(kTreeOk, tree.WriteOut());
        EXPECT_EQ(0, VerifyTreeFile(folder.File("tree")));
    }
}

// Its first put waits in memory for whatever operation comes next.
TEST(Tree, WithoutAFileAgreesFromItsFirstOperationOn) {
    for (unsigned seed = 0; seed < 300; ++seed) {
        SCOPED_TRACE(seed);
        Tree tree;
        ASSERT_NO_FATAL_FAILURE(Model(tree, seed, 2).TakeSteps(8));
    }
}

}  // namespace
