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

bool decoder::at_field(int expected) {
    if (status_)
        return false;
    short id = channel_->read_short();
    int id_as_int = id;
    if (id != expected && !check_invalid_value(expected, id, id_as_int))
        return false;
    channel_->read_byte();
    return true;
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
    if (at_field(id)) {
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
    if (at_field(id))
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

void decoder::decode_string_field(int id, ustring& value) {
    if (!at_field(id))
        return;
    ustring text;
    if (!channel_->read_string(text))
        return fail("decoding error");
    value = std::move(text);
    if (variables)
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
    const int kind = channel_->read_byte();
    if (kind == 0) {
        result = nullptr;
    } else if (kind == 2) {
        const std::int32_t index = channel_->read_integer();
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

void decoder::decode_new_object(codable*& result) {
    ustring name;
    const ustring part = channel_->read_string(name) ? factory_part(name) : ustring();
    void* address =
        part.empty() ? nullptr : library_loader::instance()->get_api(ustring(u"make_") + part);
    if (!address)
        return fail("** DID NOT FIND OBJECT IN LIST ** ABORTING!");
    codable* object = reinterpret_cast<codable* (*)()>(address)();
    if (!object || !names_class(*object, part)) {
        delete object;
        return fail("** DID NOT FIND OBJECT IN LIST ** ABORTING!");
    }
    result = object;
    objects_.register_object(object);
    const std::int32_t stream_version = channel_->read_integer();
    object->decode_object(*this, stream_version);
    if (status_) {
        KM_TRACE(trace_error, "common", "decoder error (2)... skipping!");
        return;
    }
    short id = channel_->read_short();
    int id_as_int = id;
    if (id != -1)
        check_invalid_value(-1, id, id_as_int);
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
