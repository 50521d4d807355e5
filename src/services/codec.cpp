// codec: encoder and decoder of object trees
// format: docs/formats/coded-object.md
// invariant: after status 2 no byte is read; nothing is allocated before its bytes are there
#include "codec.h"

#include "channel.h"
#include "decode_channel.h"
#include "encode_channel.h"
#include "library_loader.h"
#include "trclog.h"
#include "variable_list.h"
#include "vector.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

namespace km {

long get_engine_build_number() { return 1500; }

void encoder::head(int id, field_tag tag) {
    channel_->write_short(id);
    channel_->write_byte(tag);
}

encoder& encoder::encode_boolean_field(int id, int value) {
    head(id, tag_boolean);
    channel_->write_byte(value);
    return *this;
}

encoder& encoder::encode_byte_field(int id, unsigned char value) {
    head(id, tag_byte);
    channel_->write_byte(value);
    return *this;
}

encoder& encoder::encode_short_field(int id, short value) {
    head(id, tag_short);
    channel_->write_short(value);
    return *this;
}

encoder& encoder::encode_integer_field(int id, std::int32_t value) {
    head(id, tag_integer);
    channel_->write_integer(value);
    return *this;
}

encoder& encoder::encode_long_field(int id, long value) {
    head(id, tag_long);
    channel_->write_long(value);
    return *this;
}

encoder& encoder::encode_float_field(int id, float value) {
    head(id, tag_float);
    channel_->write_float(value);
    return *this;
}

encoder& encoder::encode_string_field(int id, const ustring& value) {
    head(id, tag_string);
    channel_->write_string(value);
    return *this;
}

encoder& encoder::encode_string_field(int id, const char* value) {
    head(id, tag_string);
    channel_->write_string(value);
    return *this;
}

encoder& encoder::encode_string_field(int id, const pathname& value) {
    head(id, tag_string);
    channel_->write_bulk_string(value);
    return *this;
}

encoder& encoder::encode_object_field(int id, const codable* value) {
    head(id, tag_object);
    return encode_object(value);
}

encoder& encoder::encode_byte_array_field(int id, const unsigned char* bytes, std::int32_t count) {
    head(id, tag_byte_array);
    channel_->write_integer(count);
    channel_->write_bytes(bytes, count);
    return *this;
}

encoder& encoder::encode_iterator(int id, iterator* elements) {
    head(id, tag_iterator);
    while (elements->hasMoreElements())
        if (const codable* element = elements->nextElement())
            encode_object(element);
    return encode_object(nullptr);
}

encoder& encoder::encode_object(const codable* object) {
    if (!object) {
        channel_->write_byte(0);
        return *this;
    }
    const int index = objects_.find(object);
    if (index >= 0) {
        channel_->write_byte(2);
        channel_->write_integer(index);
        return *this;
    }
    channel_->write_byte(1);
    channel_->write_string(object->codable_name());
    objects_.register_object(object);
    channel_->write_integer(static_cast<std::int32_t>(object->codable_version()));
    object->encode_object(*this);
    channel_->write_short(-1);
    return *this;
}

void encoder::flush() { channel_->flush(); }

namespace {
constexpr int array_block = 65536;
constexpr size_t most_classes = 16;
constexpr int longest_name = 64;
constexpr int not_short = 0xFFFF;     // count of a text that may be a longer one
constexpr int end_of_object = 0xFFFF; // the short -1

std::uint32_t number_at(const unsigned char* at) {
    return std::uint32_t{at[0]} << 24 | std::uint32_t{at[1]} << 16 | std::uint32_t{at[2]} << 8 |
           at[3];
}

int count_at(const unsigned char* at) { return at[0] << 8 | at[1]; }

bool is_ascii(const unsigned char* bytes, int count) {
    constexpr std::uint64_t high_bits = 0x8080808080808080U;
    std::uint64_t seen = 0;
    int at = 0;
    for (std::uint64_t eight = 0; at + 8 <= count; at += 8) {
        std::memcpy(&eight, bytes + at, sizeof eight);
        seen |= eight;
    }
    for (; at < count; ++at)
        seen |= bytes[at];
    return (seen & high_bits) == 0;
}
} // namespace

void decoder::fail(const char* why) {
    KM_TRACE(trace_error, "common", "%s", why);
    status_ = failed;
}

// A short read inside a value must not pass for a value.
void decoder::check_channel() {
    if (channel_->get_decode_error())
        fail("Error in input channel!");
}

const unsigned char* decoder::value_in_block(int expected, int size) {
    constexpr int head = 3; // id and tag
    const unsigned char* at = channel_->in_block(head + size);
    if (status_ || !at || static_cast<short>(count_at(at)) != expected)
        return nullptr;
    channel_->pass(head + size);
    return at + head;
}

bool decoder::find_field(int expected) {
    if (status_)
        return false;
    if (channel_->ahead(3) && value_in_block(expected, 0))
        return true;
    short id = channel_->read_short();
    int id_as_int = id;
    if (id != expected && !check_invalid_value(expected, id, id_as_int))
        return false;
    channel_->read_byte();
    return true;
}

std::int32_t decoder::next_integer() {
    const unsigned char* at = channel_->in_block(4);
    if (!at)
        return channel_->read_integer();
    channel_->pass(4);
    return static_cast<std::int32_t>(number_at(at));
}

int decoder::check_invalid_value(int expected, short& id, int& id_as_int) {
    if (channel_->get_decode_error()) {
        fail("Error in input channel!");
        return 0;
    }
    const long own = get_engine_build_number();
    if (own >= package_build_number) {
        KM_TRACE(trace_info, "common", "BUILD_NUMBER (%ld) >= package_build_number(%ld) unread...",
                 own, package_build_number);
        channel_->unread(id & 0xFF);
        channel_->unread((id >> 8) & 0xFF);
        return 0;
    }
    KM_TRACE(trace_info, "common", "BUILD_NUMBER (%ld) < package_build_number(%ld) try to skip...",
             own, package_build_number);
    while (channel_->get_decode_error() == 0) {
        if (expected == id_as_int)
            return 1;
        if (!skip(id))
            return 0;
        id = channel_->read_short();
        id_as_int = id;
    }
    fail("Error in input channel!");
    return 0;
}

void decoder::decode_boolean_field(int id, int& value) {
    unsigned char byte = 0;
    if (const auto* at = value_in_block(id, 1)) {
        value = *at;
    } else if (at_field(id)) {
        channel_->read_bytes(&byte, 1);
        value = byte;
    }
}

void decoder::decode_byte_field(int id, unsigned char& value) {
    if (at_field(id))
        channel_->read_bytes(&value, 1);
}

void decoder::decode_byte_array_field(int id, unsigned char*& bytes, int& count) {
    if (!at_field(id))
        return;
    const std::int32_t wanted = channel_->read_integer();
    if (wanted < 0 || channel_->get_decode_error())
        return fail("decoding error");
    std::vector<unsigned char> read;
    while (static_cast<std::int32_t>(read.size()) < wanted) {
        const auto have = read.size();
        const int block = std::min<int>(wanted - static_cast<int>(have), array_block);
        read.resize(have + static_cast<size_t>(block));
        channel_->read_bytes(read.data() + have, block);
        if (channel_->get_decode_error())
            return fail("Error in input channel!");
    }
    bytes = new unsigned char[std::max<size_t>(read.size(), 1)]();
    std::copy(read.begin(), read.end(), bytes);
    count = wanted;
}

void decoder::decode_short_field(int id, short& value) {
    if (at_field(id))
        value = channel_->read_short();
}

void decoder::decode_integer_field(int id, std::int32_t& value) {
    if (const auto* at = value_in_block(id, 4))
        value = static_cast<std::int32_t>(number_at(at));
    else if (at_field(id))
        value = channel_->read_integer();
}

void decoder::decode_long_field(int id, long& value) {
    if (at_field(id))
        value = channel_->read_long();
}

void decoder::decode_float_field(int id, float& value) {
    if (at_field(id))
        value = channel_->read_float();
}

void decoder::decode_string_field(int id, char* buffer, int size) {
    if (at_field(id) && !channel_->read_string(buffer, size))
        fail("decoding error");
}

// A short text of ASCII alone, as nearly all are. False: nothing was read.
bool decoder::take_ascii(ustring& text, bool& may_refer) {
    const unsigned char* head = channel_->ahead(2);
    const int count = head ? count_at(head) : not_short;
    const unsigned char* bytes = count != not_short ? channel_->ahead(2 + count) : nullptr;
    if (!bytes || !is_ascii(bytes + 2, count))
        return false;
    may_refer = std::memchr(bytes + 2, '$', static_cast<size_t>(count)) != nullptr;
    const auto length = static_cast<ustring::size_type>(count);
    text.reserve(length);
    std::copy(bytes + 2, bytes + 2 + count, text.data());
    text.eos(length);
    channel_->pass(2 + count);
    return true;
}

void decoder::decode_string_field(int id, ustring& value) {
    if (!at_field(id))
        return;
    bool may_refer = true;
    if (!take_ascii(value, may_refer)) {
        ustring text;
        if (!channel_->read_string(text))
            return fail("decoding error");
        value = std::move(text);
    }
    if (variables && may_refer)
        variables->substitute_variables(value);
}

void decoder::decode_string_field(int id, pathname& value) {
    if (!at_field(id))
        return;
    channel_->read_bulk_string(value);
    check_channel();
}

void decoder::decode_object_field(int id, codable*& value) {
    if (at_field(id))
        decode_object(value);
}

void decoder::decode_iterator(int id, iterator*& elements) {
    if (!at_field(id))
        return;
    auto read = std::make_unique<vector>();
    read->set_owns(0);
    for (;;) {
        codable* element = nullptr;
        decode_object(element);
        // Every sequence owns its elements: one that stands elsewhere already would be freed twice.
        if (was_reference_) {
            fail("decoding error");
            break;
        }
        // A half-read element is handed out too: its owner deletes it.
        if (element)
            read->push_back(element);
        if (!element || status_)
            break;
    }
    elements = new vector_iterator(read.release(), 1);
}

codable* decoder::drop(codable* object) {
    if (!was_reference_) {
        forget(object);
        delete object;
    }
    fail("decoding error");
    return nullptr;
}

void decoder::decode_object(codable*& result) {
    if (status_) {
        KM_TRACE(trace_error, "common", "decoder error... skipping!");
        return;
    }
    was_reference_ = false;
    const unsigned char* at = channel_->ahead(1);
    const int kind = at ? *at : channel_->read_byte();
    if (at)
        channel_->pass(1);
    if (kind == 0) {
        result = nullptr;
    } else if (kind == 2) {
        const std::int32_t index = next_integer();
        codable* known = objects_.find(index);
        if (!known) {
            KM_TRACE(trace_error, "common", "decoding error searching for index %d", index);
            status_ = failed;
            return;
        }
        result = known;
        was_reference_ = true;
    } else if (kind == 1) {
        if (depth_ >= deepest)
            return fail("objects are nested too deeply");
        ++depth_;
        decode_new_object(result);
        --depth_;
        was_reference_ = false;
    } else {
        KM_TRACE(trace_error, "common", "** INVALID codable::RC %d**", kind);
        fail("decoding error");
    }
}

namespace {

// The part of a coded name that names its factory, empty if it is no name of one.
ustring factory_part(const ustring& name) {
    const auto dot = name.rfind(u'.');
    if (dot == ustring::npos)
        return ustring();
    const ustring part = name.substr(dot + 1);
    for (unsigned i = 0; i < part.length(); ++i) {
        const char16_t c = part[i];
        const bool letter = (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || c == u'_';
        if (!letter && !(i > 0 && c >= u'0' && c <= u'9'))
            return ustring();
    }
    // Of the same form, but not factories of coded classes.
    if (part == ustring(u"importer") || part == ustring(u"exporter"))
        return ustring();
    return part;
}

// `part` is ASCII.
bool names_class(const codable& object, const ustring& part) {
    const char* name = object.codable_name();
    const char* dot = name ? std::strrchr(name, '.') : nullptr;
    if (!dot || std::strlen(dot + 1) != part.length())
        return false;
    for (unsigned i = 0; i < part.length(); ++i)
        if (part[i] != static_cast<unsigned char>(dot[1 + i]))
            return false;
    return true;
}

} // namespace

bool decoder::is_known_cast(const std::type_info& from, const std::type_info& to) const {
    for (size_t i = 0; i < cast_count_; ++i)
        if (casts_[i].from == &from && casts_[i].to == &to)
            return true;
    return false;
}

void decoder::remember_cast(const std::type_info& from, const std::type_info& to) {
    if (cast_count_ < casts_.size())
        casts_[cast_count_++] = {&from, &to};
}

void decoder::remember_class(const ustring& name, codable* (*make)(), const codable& made) {
    std::string coded;
    for (unsigned i = 0; i < name.length() && name[i] < 0x80; ++i)
        coded += static_cast<char>(name[i]);
    if (coded.size() == name.length() && coded.size() <= longest_name &&
        classes_.size() < most_classes)
        classes_.push_back({std::move(coded), make, &typeid(made)});
}

// Null, with nothing read, where the name has to be looked up. At the level at which the loader
// tells of each call it is called each time.
codable* decoder::make_known(codable* blank) {
    const unsigned char* head = channel_->ahead(2);
    if (!head || count_at(head) > longest_name || trace::level() >= trace_return)
        return nullptr;
    const auto count = static_cast<size_t>(count_at(head));
    const unsigned char* name = channel_->ahead(2 + static_cast<int>(count));
    for (const auto& one : classes_) {
        if (!name || one.name.size() != count || std::memcmp(one.name.data(), name + 2, count) != 0)
            continue;
        if (blank && typeid(*blank) == *one.type) {
            channel_->pass(2 + static_cast<int>(count));
            return blank;
        }
        std::unique_ptr<codable> made(one.make());
        if (!made || typeid(*made) != *one.type)
            return nullptr;
        channel_->pass(2 + static_cast<int>(count));
        return made.release();
    }
    return nullptr;
}

codable* decoder::make_by_name() {
    ustring name;
    const ustring part = channel_->read_string(name) ? factory_part(name) : ustring();
    void* address =
        part.empty() ? nullptr : library_loader::instance()->get_api(ustring(u"make_") + part);
    if (!address)
        return nullptr;
    const auto make = reinterpret_cast<codable* (*)()>(address);
    codable* object = make();
    if (!object || !names_class(*object, part)) {
        delete object;
        return nullptr;
    }
    remember_class(name, make, *object);
    return object;
}

void decoder::decode_new_object(codable*& result) {
    codable* const blank = std::exchange(blank_, nullptr);
    codable* object = make_known(blank);
    if (!object && !(object = make_by_name()))
        return fail("** DID NOT FIND OBJECT IN LIST ** ABORTING!");
    result = object;
    objects_.register_object(object);
    const std::int32_t stream_version = next_integer();
    just_made_ = object;
    object->decode_object(*this, stream_version);
    just_made_ = nullptr;
    if (status_) {
        KM_TRACE(trace_error, "common", "decoder error (2)... skipping!");
        return;
    }
    if (const auto* at = channel_->in_block(2); at && count_at(at) == end_of_object) {
        channel_->pass(2);
    } else {
        short id = channel_->read_short();
        int id_as_int = id;
        if (id != -1)
            check_invalid_value(-1, id, id_as_int);
    }
    check_channel();
}

int decoder::skip(short id) {
    if (status_) {
        KM_TRACE(trace_error, "common", "decoder error... skipping!");
        return 0;
    }
    KM_TRACE(trace_info, "common", "skipping id %d", id);
    const int tag = channel_->read_byte();
    channel_->unread(tag);
    channel_->unread(id & 0xFF);
    channel_->unread((id >> 8) & 0xFF);
    auto tell = [](const char* type) { KM_TRACE(trace_info, "common", "skipping %s type", type); };
    switch (tag) {
    case tag_boolean: {
        int value;
        tell("boolean");
        decode_boolean_field(id, value);
        break;
    }
    case tag_byte: {
        unsigned char value;
        tell("byte");
        decode_byte_field(id, value);
        break;
    }
    case tag_short: {
        short value;
        tell("short");
        decode_short_field(id, value);
        break;
    }
    case tag_integer: {
        std::int32_t value;
        tell("integer");
        decode_integer_field(id, value);
        break;
    }
    case tag_long: {
        long value;
        tell("long");
        decode_long_field(id, value);
        break;
    }
    case tag_float: {
        float value;
        tell("float");
        decode_float_field(id, value);
        break;
    }
    case tag_string: {
        ustring value;
        tell("string");
        decode_string_field(id, value);
        break;
    }
    case tag_byte_array: {
        unsigned char* bytes = nullptr;
        int count = 0;
        tell("byte_array");
        decode_byte_array_field(id, bytes, count);
        delete[] bytes;
        break;
    }
    case tag_iterator: {
        iterator* elements = nullptr;
        tell("iterator");
        decode_iterator(id, elements);
        // Later back references may name them, so they live as long as the decoder.
        while (elements && elements->hasMoreElements())
            skipped_.emplace_back(elements->nextElement());
        delete elements;
        break;
    }
    default:
        tell(tag >= 0 && tag <= 20 && tag != 18 ? "unused" : "unknown");
        status_ = failed;
        return 0;
    }
    check_channel();
    if (status_ == 0)
        return 1;
    KM_TRACE(trace_error, "common", "error during skip!");
    return 0;
}

} // namespace km
