#include "certstorage/tree.h"

#include <algorithm>
#include <cerrno>
#include <functional>
#include <map>
#include <optional>
#include <random>

#include "certstorage/tree_verify.h"
#include "certstorage/store_test.h"
#include "support/temp_folder.h"

namespace {

using nal::CompareKeys;
using nal::kTreeError;
using nal::kTreeOk;
using nal::kTreeSpecial;
using nal::Position;
using nal::PutMode;
using nal::Record;
using nal::RecordKey;
using nal::Step;
using nal::Tree;
using nal_test::AsView;
using nal_test::Identifier;
using nal_test::Serial;
using nal_test::Text;

TEST(RecordKey, OrdersByIdentifierThenSerialThenSignedKind) {
    const std::vector<RecordKey> ordered = {
        {Identifier(1), {}, 0xFFFFFFFF},  // a kind word is signed
        {Identifier(1), {}, 0},
        {Identifier(1), {}, nal::kKindCert},
        {Identifier(1), {}, nal::kKindCertProp | 2},
        {Identifier(1), Serial(1), nal::kKindCrl},
        {Identifier(1), Serial(1), nal::kKindCrlProp | 3},
        {Identifier(1), Serial(2), nal::kKindCrl},
        {Identifier(1, 1), {}, nal::kKindCert},
        {Identifier(2), {}, nal::kKindCert},
        {Identifier(0xFF), {}, nal::kKindCert},
    };
    for (std::size_t i = 0; i < ordered.size(); ++i) {
        EXPECT_EQ(0, CompareKeys(ordered[i].Bytes(), ordered[i].Bytes()));
        for (std::size_t k = i + 1; k < ordered.size(); ++k) {
            EXPECT_LT(CompareKeys(ordered[i].Bytes(), ordered[k].Bytes()), 0) << i << ' ' << k;
            EXPECT_GT(CompareKeys(ordered[k].Bytes(), ordered[i].Bytes()), 0) << i << ' ' << k;
        }
    }
}

TEST(RecordKey, ComparesCutAndForeignKeys) {
    const RecordKey key{Identifier(7), {}, nal::kKindCert};
    const RecordKey zeroTail{Identifier(7), {}, 0};
    EXPECT_EQ(0, CompareKeys(key.Bytes().Sub(0, 20), zeroTail.Bytes()));
    EXPECT_LT(CompareKeys(key.Bytes().Sub(0, 20), key.Bytes()), 0);
    EXPECT_LT(CompareKeys({}, key.Bytes()), 0);
    const std::string longer = Text(key.Bytes()) + "x";
    EXPECT_GT(CompareKeys(AsView(longer), key.Bytes()), 0);
    EXPECT_LT(CompareKeys(key.Bytes(), AsView(longer)), 0);
    EXPECT_EQ(0, CompareKeys(AsView(longer), AsView(longer)));
}

TEST(RecordKey, PrefixIsTheIdentifierOrAll) {
    const RecordKey a = RecordKey::Cert(Identifier(1));
    const RecordKey b = RecordKey::Cert(Identifier(2));
    const RecordKey prop = RecordKey::Prop(Identifier(1), 2, nullptr);
    EXPECT_EQ(20U, nal::KeyPrefix(a.Bytes(), b.Bytes()));
    EXPECT_EQ(40U, nal::KeyPrefix(a.Bytes(), prop.Bytes()));
    EXPECT_EQ(8U, nal::KeyPrefix(a.Bytes(), b.Bytes().Sub(0, 8)));
}

// What a step gave, "-" at the end.
std::string Next(Tree& tree, Position& position, Step step = Step::Next) {
    Record record;
    const int status = tree.Move(position, step, record);
    return status == kTreeOk ? Text(record.value) : status == kTreeSpecial ? "-" : "error";
}

void Put(Tree& tree, unsigned char id, const std::string& value) {
    ASSERT_EQ(kTreeOk, tree.Put(RecordKey::Cert(Identifier(id)), AsView(value), PutMode::Overwrite));
}

TEST(Tree, PositionsOfOneTreeDoNotDisturbEachOther) {
    Tree tree;
    for (unsigned char id : {10, 20, 30, 40}) Put(tree, id, std::to_string(id));
    Position a;
    Position b;
    EXPECT_EQ("10", Next(tree, a, Step::First));
    EXPECT_EQ("10", Next(tree, b));  // a position that was never set starts at the first
    EXPECT_EQ("20", Next(tree, a));
    EXPECT_EQ("20", Next(tree, b));
    EXPECT_EQ("30", Next(tree, b));

    // The record of a position goes: what followed it is next.
    ASSERT_EQ(kTreeOk, tree.Delete(RecordKey::Cert(Identifier(20))));
    EXPECT_EQ("40", Next(tree, b));
    EXPECT_EQ("30", Next(tree, a));
    EXPECT_EQ("-", Next(tree, b));
    EXPECT_EQ("40", Next(tree, a));

    // The end is the last record: what comes behind it later is still next.
    Put(tree, 50, "50");
    Put(tree, 35, "35");
    EXPECT_EQ("50", Next(tree, b));
    EXPECT_EQ("50", Next(tree, a));
    EXPECT_EQ("-", Next(tree, a));
    EXPECT_EQ("10", Next(tree, a, Step::First));
}

TEST(Tree, DeletesAtThePositionAndGoesOn) {
    Tree tree;
    for (unsigned char id : {10, 20, 30}) Put(tree, id, std::to_string(id));
    Position position;
    Position other;
    EXPECT_EQ("10", Next(tree, position, Step::First));
    ASSERT_EQ(kTreeOk, tree.DeleteAt(position));
    EXPECT_EQ("20", Next(tree, other, Step::First));
    EXPECT_EQ(kTreeError, tree.DeleteAt(position)) << "the cursor stands elsewhere";
    EXPECT_EQ("20", Next(tree, position));
    ASSERT_EQ(kTreeOk, tree.DeleteAt(position));
    EXPECT_EQ("30", Next(tree, position));
    ASSERT_EQ(kTreeOk, tree.DeleteAt(position));
    EXPECT_EQ("-", Next(tree, position));
    EXPECT_EQ("-", Next(tree, other, Step::First));
}

TEST(Tree, MemoryTreeMakesUpForItsPendingPut) {
    const RecordKey key = RecordKey::Cert(Identifier(1));
    struct Case {
        const char* name;
        std::function<void(Tree&)> operate;
        int records;
    };
    const Case cases[] = {
        {"get", [&](Tree& t) { asnt::View v; EXPECT_EQ(kTreeOk, t.Get(key, v)); EXPECT_EQ("one", Text(v)); }, 1},
        {"keep", [&](Tree& t) { EXPECT_EQ(kTreeSpecial, t.Put(key, AsView("two"), PutMode::KeepExisting)); }, 1},
        {"put", [&](Tree& t) { EXPECT_EQ(kTreeOk, t.Put(RecordKey::Cert(Identifier(2)), AsView("two"), PutMode::KeepExisting)); }, 2},
        {"delete", [&](Tree& t) { EXPECT_EQ(kTreeOk, t.Delete(key)); }, 0},
        {"walk", [&](Tree& t) { Position p; EXPECT_EQ("one", Next(t, p, Step::First)); EXPECT_EQ("-", Next(t, p)); }, 1},
        {"seek", [&](Tree& t) { Position p; Record r; EXPECT_EQ(kTreeOk, t.Seek(p, {}, r)); EXPECT_EQ("one", Text(r.value)); }, 1},
        {"last", [&](Tree& t) { Position p; EXPECT_EQ(kTreeOk, t.MoveToLast(p)); EXPECT_EQ("-", Next(t, p)); }, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Tree tree;
        ASSERT_EQ(kTreeOk, tree.Put(key, AsView("one"), PutMode::KeepExisting));
        c.operate(tree);
        int count = 0;
        Position position;
        for (std::string found = Next(tree, position, Step::First); found != "-"; found = Next(tree, position)) ++count;
        EXPECT_EQ(c.records, count);
    }
}

// With the store's settings every key lies on an overflow page; with others Berkeley DB cuts keys with the prefix function.
// Random changes under each are held against an ordered map, and the file is sound in the end.
TEST(Tree, AgreesWithAnOrderedMapWhateverThePageSettings) {
    const nal::TreeSettings settings[] = {{}, {0, 0, 512}, {0, 2, 1024}, {0x100000, 4, 4096}};
    for (const auto& setting : settings) {
        SCOPED_TRACE(setting.minKeysPerPage);
        const nal_test::TempFolder folder;
        Tree tree(setting);
        ASSERT_EQ(0, tree.OpenFile(folder.File("tree")));
        const auto less = [](const RecordKey& a, const RecordKey& b) { return CompareKeys(a.Bytes(), b.Bytes()) < 0; };
        std::map<RecordKey, std::string, decltype(less)> model(less);
        std::mt19937 random(20);
        Position position;
        std::optional<RecordKey> at;
        for (int i = 0; i < 6000; ++i) {
            RecordKey key;
            key.identifier[0] = static_cast<unsigned char>(random() % 3);
            key.identifier[19] = static_cast<unsigned char>(random() % 40);
            key.crlSerial[15] = static_cast<unsigned char>(random() % 2);
            key.kind = random() % 2 != 0 ? nal::kKindCert : nal::kKindCertProp | random() % 5;
            const std::string value(random() % 200, static_cast<char>('a' + i % 26));
            switch (random() % 4) {
                case 0:
                    ASSERT_EQ(model.erase(key) != 0 ? kTreeOk : kTreeSpecial, tree.Delete(key));
                    break;
                case 1: {
                    const auto next = at ? model.upper_bound(*at) : model.begin();
                    ASSERT_EQ(next != model.end() ? next->second : "-", Next(tree, position));
                    if (next != model.end()) at = next->first;
                    break;
                }
                default:
                    ASSERT_EQ(kTreeOk, tree.Put(key, AsView(value), PutMode::Overwrite));
                    model[key] = value;
            }
            if (i % 1000 == 999) {
                ASSERT_EQ(0, tree.Reopen());
            }
        }
        for (const auto& [key, value] : model) {
            asnt::View found;
            ASSERT_EQ(kTreeOk, tree.Get(key, found));
            ASSERT_EQ(value, Text(found));
        }
        ASSERT_EQ(kTreeOk, tree.WriteOut());
        EXPECT_EQ(0, nal::VerifyTreeFile(folder.File("tree")));
    }
}

TEST(Tree, FileThatCannotBeOpenedFailsEveryOperation) {
    const nal_test::TempFolder folder;
    Tree tree;
    EXPECT_EQ(ENOENT, tree.OpenFile(folder.File("no/such/folder")));
    Record record;
    Position position;
    errno = 0;
    EXPECT_EQ(kTreeError, tree.Put({}, AsView("x"), PutMode::Overwrite));
    EXPECT_EQ(EBADF, errno);
    EXPECT_EQ(kTreeError, tree.Move(position, Step::First, record));
    EXPECT_EQ(kTreeError, tree.WriteOut());
}

}  // namespace
