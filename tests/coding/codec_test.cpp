// The coded form of objects: bytes, hostile streams, streams of other builds.
#include "hashtable.h"
#include "library_loader.h"
#include "pair.h"
#include "values.h"
#include "variable_list.h"

#include "support/coded.h"
#include "support/scratch.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>

using namespace std::string_literals;
using km::ustring;
using namespace km_test;

namespace {

// Read byte by byte and in blocks, which must come to the same.
std::unique_ptr<km::codable> decoded_both_ways(const std::string& bytes, int* status = nullptr) {
    reading stream(bytes), blocks(bytes, true);
    km::codable *object = nullptr, *same = nullptr;
    stream.in.decode_object(object);
    blocks.in.decode_object(same);
    EXPECT_EQ(blocks.in.get_status(), stream.in.get_status());
    EXPECT_EQ(blocks.bytes_read(), stream.bytes_read());
    EXPECT_EQ(!same, !object);
    if (object && same && !stream.in.get_status()) {
        EXPECT_EQ(encoded(*same), encoded(*object));
    }
    delete same;
    if (status)
        *status = stream.in.get_status();
    return std::unique_ptr<km::codable>(object);
}

// The loader finds the factories of this library in the library itself.
class Codec : public testing::Test {
  protected:
    void SetUp() override {
        dir_.write("libs.znp", "no_such_library\n\n" KM_BUILD_LIB "/libkmcore\n");
        ::setenv("SPEDITOR_LIB_PATH", dir_.path().c_str(), 1);
        ::setenv("HOME", dir_.path().c_str(), 1);
        km::library_loader::discard();
    }
    void TearDown() override { km::library_loader::discard(); }
    km_test::scratch_dir dir_;
};

const std::string prefix = "com.ombrel.sd.cmObjects.";

std::string object_head(const std::string& name) {
    const std::string whole = prefix + name;
    return "\x01\0"s + static_cast<char>(whole.size()) + whole + "\0\0\0\1"s;
}

} // namespace

TEST_F(Codec, GoldenBytesOfAPair) {
    const std::string golden = object_head("Pair") + "\0\0\4\0\0\0\1"s + "\0\x64\x08\0\1a"s +
                               "\0\x65\x08\0\2\xC2\xA9"s + "\xFF\xFF"s;
    const km::pair one(ustring("a"), ustring(u"\u00A9"));
    EXPECT_EQ(encoded(one), golden);
    const auto back = decoded_both_ways(golden);
    ASSERT_TRUE(back);
    EXPECT_TRUE(*back == one);
}

TEST_F(Codec, GoldenBytesOfEveryFieldKind) {
    const unsigned char array[] = {9, 8};
    const std::string bytes = encoded([&](km::encoder& out) {
        out.encode_boolean_field(1, 0x101)
            .encode_byte_field(2, 0xFE)
            .encode_short_field(3, -2)
            .encode_integer_field(4, 0x01020304)
            .encode_long_field(5, -1)
            .encode_long_field(5, 0x80000000L)
            .encode_float_field(6, 1.5F)
            .encode_string_field(7, ustring())
            .encode_object_field(8, nullptr)
            .encode_byte_array_field(9, array, 2);
    });
    EXPECT_EQ(bytes, "\0\1\0\1"s + "\0\2\2\xFE"s + "\0\3\3\xFF\xFE"s + "\0\4\4\1\2\3\4"s +
                         "\0\5\5\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s +
                         "\0\5\5\xFF\xFF\xFF\xFF\x80\0\0\0"s + "\0\6\6\0\0\xC0\x3F"s +
                         "\0\7\x08\0\0"s + "\0\x08\x09\0"s + "\0\x09\x0C\0\0\0\2\x09\x08"s);
    reading stream(bytes);
    int flag = 0;
    unsigned char byte = 0;
    short small = 0;
    std::int32_t number = 0;
    long low = 0, high = 0;
    float real = 0;
    stream.in.decode_boolean_field(1, flag);
    stream.in.decode_byte_field(2, byte);
    stream.in.decode_short_field(3, small);
    stream.in.decode_integer_field(4, number);
    stream.in.decode_long_field(5, low);
    stream.in.decode_long_field(5, high);
    stream.in.decode_float_field(6, real);
    EXPECT_EQ(flag, 1);
    EXPECT_EQ(byte, 0xFE);
    EXPECT_EQ(small, -2);
    EXPECT_EQ(number, 0x01020304);
    EXPECT_EQ(low, -1);
    EXPECT_EQ(high, -2147483648L);
    EXPECT_EQ(real, 1.5F);
    EXPECT_EQ(stream.in.get_status(), 0);
}

TEST_F(Codec, StringHeadersAtTheirLimits) {
    for (const unsigned size : {0u, 65534u, 65535u, 65536u, 200000u}) {
        km::array_output_channel bytes(16);
        const ustring text(size, u'x');
        text.writeUTF(bytes);
        EXPECT_EQ(bytes.get_count(), static_cast<long>(size) + (size < 65536 ? 2 : 7));
        km::array_input_channel in(bytes.get_data(), static_cast<int>(bytes.get_count()));
        ustring back("old");
        ASSERT_EQ(back.readUTF(in), 1);
        EXPECT_TRUE(back == text);
        EXPECT_EQ(in.read(), -1);
    }
}

TEST_F(Codec, TextsThatAreNoneAreRefused) {
    const std::string bad[] = {"\0\1\x80"s,
                               "\0\1\xF0"s,
                               "\0\1\xC3"s,
                               "\0\2\xC3x"s,
                               "\0\3\xE2\x82x"s,
                               "\0\5ab"s,
                               "\0"s,
                               ""s,
                               "\xFF\xFF\xFF\x7F\xFF\xFF\xFFx"s};
    for (const auto& bytes : bad) {
        km::array_input_channel in(reinterpret_cast<const unsigned char*>(bytes.data()),
                                   static_cast<int>(bytes.size()));
        ustring text;
        EXPECT_EQ(text.readUTF(in), 0) << bytes.size();
    }
    km::array_output_channel out(8);
    ustring(u"\0\xD800", 2).writeUTF(out);
    EXPECT_EQ(out.get_count(), 7); // two bytes for NUL, three for a lone unit
}

TEST_F(Codec, SharedObjectsStayShared) {
    const km::long_value shared(7);
    const std::string bytes = encoded([&](km::encoder& out) {
        out.encode_object(&shared).encode_object(nullptr).encode_object(&shared);
    });
    reading stream(bytes);
    km::codable *first = nullptr, *none = nullptr, *again = nullptr;
    stream.in.decode_object(first);
    stream.in.decode_object(none);
    stream.in.decode_object(again);
    EXPECT_EQ(first, again);
    EXPECT_EQ(none, nullptr);
    EXPECT_TRUE(*first == shared);
    delete first;
}

TEST_F(Codec, MapsAndVariableListsComeBack) {
    km::Hashtable table;
    for (int i = 0; i < 100; ++i)
        table.put(km::unsInt_value(static_cast<unsigned>(i)), ustring("value"));
    int status = -1;
    const auto back = decoded_both_ways(encoded(table), &status);
    const auto* read = dynamic_cast<km::Hashtable*>(back.get());
    ASSERT_TRUE(read && status == 0);
    EXPECT_EQ(read->size(), 100);
    EXPECT_EQ(read->get_initial_capacity(), 21);
    km::variable_list list;
    list.set_value(ustring("a"), ustring("$(b)"));
    const auto second = decoded_both_ways(encoded(list));
    const auto* variables = dynamic_cast<km::variable_list*>(second.get());
    ASSERT_TRUE(variables);
    EXPECT_EQ(*variables->get_as<ustring>(ustring("a")), ustring("$(b)"));
}

TEST_F(Codec, ACutOrFlippedStreamNeverCrashesAndNeverPassesCut) {
    km::Hashtable table;
    table.put(ustring("key"), km::pair(ustring("a"), ustring("b")));
    table.put(ustring("other"), km::long_value(5));
    const std::string whole = encoded(table);
    for (size_t cut = 0; cut < whole.size(); ++cut) {
        int status = 0;
        const auto object = decoded_both_ways(whole.substr(0, cut), &status);
        EXPECT_EQ(status, 2) << "cut at " << cut;
    }
    for (size_t at = 0; at < whole.size(); ++at)
        for (const int bit : {0, 3, 7}) {
            std::string bent = whole;
            bent[at] = static_cast<char>(bent[at] ^ (1 << bit));
            decoded_both_ways(bent);
        }
}

// Every border of a block falls once on every byte of what stands behind the padding.
TEST_F(Codec, ABlockMayEndAnywhere) {
    const km::pair plain(ustring("a"), ustring()), foreign(ustring("b"), ustring(u"\u00E4\u20AC"));
    const auto told = [](reading& stream) {
        ustring text;
        km::codable *first = nullptr, *second = nullptr, *again = nullptr;
        int flag = 0;
        std::int32_t missing = 3, number = 0;
        stream.in.decode_string_field(1, text);
        stream.in.decode_object(first);
        stream.in.decode_object(second);
        const std::unique_ptr<km::codable> own_first(first), own_second(second);
        stream.in.decode_object(again);
        stream.in.decode_boolean_field(2, flag);
        stream.in.decode_integer_field(3, missing);
        stream.in.decode_integer_field(4, number);
        EXPECT_TRUE(first && second && again == first);
        std::string all = encoded(*first) + encoded(*second);
        for (const int one : {static_cast<int>(text.length()), flag, missing, number,
                              stream.in.get_status(), stream.bytes_read()})
            all += ' ' + std::to_string(one);
        return all;
    };
    for (unsigned padding = 1900; padding < 2100; ++padding) {
        const std::string bytes = encoded([&](km::encoder& out) {
            out.encode_string_field(1, ustring(padding, u'x')).encode_object(&plain);
            out.encode_object(&foreign).encode_object(&plain);
            out.encode_boolean_field(2, 1).encode_integer_field(4, -7);
        });
        for (const size_t cut : {size_t{0}, size_t{2}, size_t{9}}) {
            const std::string part = bytes.substr(0, bytes.size() - cut);
            reading stream(part), blocks(part, true);
            const std::string all = told(blocks);
            EXPECT_EQ(all, told(stream)) << padding;
            EXPECT_EQ(all.find(std::to_string(padding) + " 1 3 -7 0 ") != std::string::npos, !cut);
        }
    }
}

// A class is looked up once in a stream, under each of its names.
TEST_F(Codec, ClassesThatCameBeforeAreNotMistaken) {
    const std::string fields = "\0\0\4\0\0\0\1\0\x64\x08\0\1a\0\x65\x08\0\1b\xFF\xFF"s;
    const auto pair_called = [&](const std::string& name) {
        return "\1\0"s + static_cast<char>(name.size()) + name + "\0\0\0\1"s + fields;
    };
    std::string bytes;
    for (int round = 0; round < 2; ++round)
        for (char c = 'a'; c <= 'z'; ++c)
            bytes += pair_called(std::string(1, c) + ".Pair");
    bytes += encoded(km::long_value(5)) + pair_called(std::string(70, 'p') + ".Pair");
    const auto classes_of = [](reading& stream, int count) {
        std::string names;
        for (int i = 0; i < count; ++i) {
            km::codable* object = nullptr;
            stream.in.decode_object(object);
            names += object ? object->codable_name() + prefix.size() : "none";
            names += ' ';
            delete object;
        }
        return names;
    };
    const std::string last[] = {pair_called("a.Pari"), pair_called("aPair."), pair_called("Pair")};
    for (const auto& unknown : last) {
        reading stream(bytes + unknown), blocks(bytes + unknown, true);
        const std::string names = classes_of(blocks, 53);
        EXPECT_EQ(names, classes_of(stream, 53));
        EXPECT_EQ(names.substr(names.size() - 22), "Pair Pair CmLongValue ");
        EXPECT_EQ(classes_of(blocks, 2), "Pair none ");
        EXPECT_EQ(blocks.in.get_status(), 2);
    }
}

TEST_F(Codec, HostileStreamsGiveStatusTwo) {
    const std::string end = "\xFF\xFF"s;
    const std::string text = object_head("ustring") + "\0\1\x08\0\1x"s + end;
    const std::string head = object_head("Hashtable") + "\0\0\4\0\0\0\1"s;
    const std::string load = "\0\2\6\0\0\x40\x3F"s;
    const std::string entry = object_head("HashtableEntry");
    const struct {
        const char* name;
        std::string bytes;
    } cases[] = {
        {"unknown class", object_head("NoSuchThing")},
        {"no class at all", "\x01\0\3abc\0\0\0\1"s},
        {"a function that is no factory", object_head("importer")},
        {"a name with other characters", object_head("a b")},
        {"bad first byte", "\7"s},
        {"reference to nothing", "\2\0\0\0\5"s},
        {"huge capacity", head + "\0\1\4\x7F\xFF\xFF\xFF"s + load},
        {"capacity 0", head + "\0\1\4\0\0\0\0"s + load},
        {"load NaN", head + "\0\1\4\0\0\0\5"s + "\0\2\6\0\0\xC0\x7F"s},
        {"one object as key and value", head + "\0\1\4\0\0\0\5"s + load + "\0\3\x15"s + entry +
                                            text + "\2\0\0\0\2"s + end + "\0"s + end},
        {"the map as its own value", head + "\0\1\4\0\0\0\5"s + load + "\0\3\x15"s + entry + text +
                                         "\2\0\0\0\0"s + end + "\0"s + end},
        {"an entry without a key",
         head + "\0\1\4\0\0\0\5"s + load + "\0\3\x15"s + entry + "\0\0"s + end + "\0"s + end},
        {"a text in the place of an entry",
         head + "\0\1\4\0\0\0\5"s + load + "\0\3\x15"s + text + "\0"s + end},
    };
    for (const auto& one : cases) {
        int status = 0;
        const auto object = decoded_both_ways(one.bytes, &status);
        EXPECT_EQ(status, 2) << one.name;
    }
}

TEST_F(Codec, DeepNestingEndsBeforeTheStack) {
    std::string bytes;
    for (int i = 0; i < 100000; ++i)
        bytes += object_head("HashtableEntry");
    int status = 0;
    const auto object = decoded_both_ways(bytes, &status);
    EXPECT_EQ(status, 2);
}

TEST_F(Codec, AMissingFieldKeepsItsDefaultAndAnUnknownOneIsPassedOver) {
    const std::string older = encoded([](km::encoder& out) { out.encode_integer_field(2, 9); });
    {
        reading stream(older);
        std::int32_t first = 5, second = 0;
        stream.in.decode_integer_field(1, first);
        stream.in.decode_integer_field(2, second);
        EXPECT_EQ(first, 5);
        EXPECT_EQ(second, 9);
    }
    auto newer = [](bool with_object) {
        return encoded([&](km::encoder& out) {
            const km::long_value value(1);
            km::vector values;
            values.set_owns(0);
            values.push_back(const_cast<km::long_value*>(&value));
            km::vector_iterator elements(&values);
            out.encode_string_field(50, ustring("new")).encode_iterator(51, &elements);
            if (with_object)
                out.encode_object_field(52, &value);
            out.encode_integer_field(2, 9);
        });
    };
    for (const bool with_object : {false, true}) {
        reading stream(newer(with_object));
        stream.in.package_build_number = km::get_engine_build_number() + 1;
        std::int32_t value = 0;
        stream.in.decode_integer_field(2, value);
        EXPECT_EQ(value, with_object ? 0 : 9);
        EXPECT_EQ(stream.in.get_status(), with_object ? 2 : 0);
    }
}

TEST_F(Codec, ByteArraysAllocateWhatCame) {
    reading stream("\0\1\x0C\x7F\xFF\xFF\xFFonly this"s);
    unsigned char* bytes = nullptr;
    int count = 0;
    stream.in.decode_byte_array_field(1, bytes, count);
    EXPECT_EQ(bytes, nullptr);
    EXPECT_EQ(stream.in.get_status(), 2);
    reading negative("\0\1\x0C\xFF\xFF\xFF\xFF"s);
    negative.in.decode_byte_array_field(1, bytes, count);
    EXPECT_EQ(negative.in.get_status(), 2);
}

TEST_F(Codec, BulkStringsAreLinesOfAFile) {
    dir_.write("in", "one\ntwo\n");
    const km::pathname in(dir_.at("in").c_str());
    const std::string bytes = encoded([&](km::encoder& out) { out.encode_string_field(1, in); });
    EXPECT_EQ(bytes, "\0\1\x08\0\3one\0\3two\0\x38"s +
                         "#BKDT#BKDT#BKDT#BKDT#BKDT#BKDT#BKDT#BKDT#BKDT#BKDT#BKDT#" + "\0\0\0\2"s);
    reading stream(bytes);
    km::pathname out(dir_.at("out").c_str());
    stream.in.decode_string_field(1, out);
    EXPECT_EQ(dir_.read("out"), "one\ntwo\n");
    reading cut(bytes.substr(0, bytes.size() - 1));
    cut.in.decode_string_field(1, out);
    EXPECT_EQ(cut.in.get_status(), 2);
}

TEST_F(Codec, TheLoaderRemembersAndPrefersTheFirstRow) {
    auto* loader = km::library_loader::instance();
    EXPECT_NE(loader->get_api(ustring("make_Pair")), nullptr);
    EXPECT_EQ(loader->get_api(ustring("make_Nothing")), nullptr);
    EXPECT_EQ(loader->get_symbols().size(), 1);
    const auto rows = loader->get_libraries().size();
    loader->add_library(ustring("first"), 1);
    EXPECT_EQ(loader->get_libraries().size(), rows + 1);
    EXPECT_EQ(loader->get_libraries()[0].name, ustring("first.so"));
    EXPECT_EQ(loader->get_libraries()[1].name, ustring("no_such_library.so"));
}
