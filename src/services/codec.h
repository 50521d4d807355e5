// codec: encoder and decoder of object trees
//
// A field is an id (short), a tag (byte) and a value; an object is a byte (0 null, 1 new, 2 written
// before), and for a new one its class name, its version, its fields and a short -1. A class writes
// its fields in a fixed order and reads them in the same order. One encoder or decoder per stream;
// one thread. The page of the format: docs/formats/coded-object.md.
#pragma once

#include "detail_coded_objects.h"
#include "iterator.h"
#include "pathname.h"

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <vector>

namespace km {

class decode_channel;
class encode_channel;
class variable_list;

enum field_tag : int {
    tag_boolean = 0,
    tag_byte = 2,
    tag_short = 3,
    tag_integer = 4,
    tag_long = 5,
    tag_float = 6,
    tag_string = 8,
    tag_object = 9,
    tag_byte_array = 12,
    tag_iterator = 21
};

// Number of this program's stream dialect, written into packages.
long get_engine_build_number();

class encoder {
  public:
    // Lends the channel.
    explicit encoder(encode_channel* channel) : channel_(channel) {}

    encoder& encode_boolean_field(int id, int value);
    encoder& encode_byte_field(int id, unsigned char value);
    encoder& encode_short_field(int id, short value);
    encoder& encode_integer_field(int id, std::int32_t value);
    // Only the low 32 bits travel.
    encoder& encode_long_field(int id, long value);
    encoder& encode_float_field(int id, float value);
    encoder& encode_string_field(int id, const ustring& value);
    encoder& encode_string_field(int id, const char* value);
    // The lines of the file of that name; for bulk reports only.
    encoder& encode_string_field(int id, const pathname& value);
    encoder& encode_object_field(int id, const codable* value);
    encoder& encode_byte_array_field(int id, const unsigned char* bytes, std::int32_t count);
    // The elements, ended by a null object; the iterator stays the caller's.
    encoder& encode_iterator(int id, iterator* elements);
    encoder& encode_object(const codable* object);
    int find(const codable* object) const { return objects_.find(object); }
    void register_object(const codable* object) { objects_.register_object(object); }
    void flush();
    int get_status() const { return status_; }
    // Takes a temporary over until the end of the encoder: back references go by address, so what
    // was written must not die while others may take its place.
    template <class T> T* keep(T* temporary) {
        kept_.emplace_back(temporary);
        return temporary;
    }

  private:
    void head(int id, field_tag tag);
    encode_channel* channel_;
    encoded_objects objects_;
    int status_ = 0;
    std::vector<std::unique_ptr<codable>> kept_;
};

// After status 2 every operation returns at once and leaves its argument as it was. Objects already
// built stay in the caller's hands.
class decoder {
  public:
    static constexpr int failed = 2;
    static constexpr int deepest = 512; // objects within objects

    // Lends the channel.
    explicit decoder(decode_channel* channel) : channel_(channel) {}
    virtual ~decoder() = default;

    void decode_boolean_field(int id, int& value);
    void decode_byte_field(int id, unsigned char& value);
    // A new array of at least one byte, the caller's (delete[]).
    void decode_byte_array_field(int id, unsigned char*& bytes, int& count);
    void decode_short_field(int id, short& value);
    void decode_integer_field(int id, std::int32_t& value);
    void decode_long_field(int id, long& value);
    void decode_float_field(int id, float& value);
    void decode_string_field(int id, char* buffer, int size);
    // Substitutes variables if there are any.
    void decode_string_field(int id, ustring& value);
    // Writes a FILE of that name; for bulk reports only.
    void decode_string_field(int id, pathname& value);
    // The object is the caller's, unless it is a back reference.
    void decode_object_field(int id, codable*& value);
    // A vector_iterator that owns a vector which does not own its elements: the caller deletes the
    // iterator and takes the elements. Null if the field is not there. A back reference among the
    // elements gives status 2.
    void decode_iterator(int id, iterator*& elements);
    void decode_object(codable*& result);
    // An object of class T that the stream brought for the first time: what a field that owns its
    // object needs. Another class or a back reference gives status 2, and a stray new object is
    // deleted. A null object gives null. `blank`, if it is given, is an object of the caller's that
    // nothing was done with since it was made: one of its very class is read into it instead of
    // into a new one, and then it is what is returned.
    template <class T> T* take_owned(int id, T* blank = nullptr);
    template <class T> T* take_owned_object();
    // What dynamic_cast gives. A stream holds many objects of few classes: a class that was one
    // before is not asked again.
    template <class T> T* as(codable* object);
    // Nothing was done with the object since its factory made it for this stream, but reading it.
    bool has_just_made(const codable& object) const { return just_made_ == &object; }

    codable* find(int index) const { return objects_.find(index); }
    void register_object(const codable* object) { objects_.register_object(object); }
    // To be called before a decoded object is deleted while the stream goes on.
    void forget(const codable* object) { objects_.forget(object); }
    // Passes over the field whose id was just read. 1, or 0 with status 2.
    int skip(short id);
    // Decides what a field that is not the expected one means; see the source. 1: go on with it.
    int check_invalid_value(int expected, short& id, int& id_as_int);

    int get_status() const { return status_; }
    void set_status(int status) { status_ = status; }
    // Whether the last decoded object came as a back reference.
    bool was_reference() const { return was_reference_; }

    long package_build_number = 0;
    int package_40 = 0;
    variable_list* variables = nullptr; // lent

  private:
    // A class that the stream has brought before.
    struct known_class {
        std::string name; // as coded
        codable* (*make)();
        const std::type_info* type;
    };
    struct known_cast {
        const std::type_info* from;
        const std::type_info* to;
    };

    // True: the value of the field is next.
    bool at_field(int expected) { return value_in_block(expected, 0) || find_field(expected); }
    bool find_field(int expected);
    // The value of the field, `size` bytes, gone over; null: at_field() has to look.
    const unsigned char* value_in_block(int expected, int size);
    std::int32_t next_integer();
    bool take_ascii(ustring& text, bool& may_refer);
    codable* make_known(codable* blank);
    codable* make_by_name();
    void remember_class(const ustring& name, codable* (*make)(), const codable& made);
    bool is_known_cast(const std::type_info& from, const std::type_info& to) const;
    void remember_cast(const std::type_info& from, const std::type_info& to);
    void fail(const char* why);
    void check_channel();
    void decode_new_object(codable*& result);
    codable* drop(codable* object);

    decode_channel* channel_;
    read_objects objects_;
    int status_ = 0;
    int depth_ = 0;
    bool was_reference_ = false;
    std::vector<std::unique_ptr<codable>> skipped_;
    std::vector<known_class> classes_;
    std::array<known_cast, 8> casts_{};
    size_t cast_count_ = 0;
    codable* blank_ = nullptr; // for the next object
    const codable* just_made_ = nullptr;
};

template <class T> T* decoder::as(codable* object) {
    if constexpr (std::is_same_v<T, codable>) {
        return object;
    } else {
        if (!object)
            return nullptr;
        const std::type_info& type = typeid(*object);
        if (is_known_cast(type, typeid(T)))
            return static_cast<T*>(object);
        T* wanted = dynamic_cast<T*>(object);
        if (wanted)
            remember_cast(type, typeid(T));
        return wanted;
    }
}

template <class T> T* decoder::take_owned_object() {
    codable* object = nullptr;
    was_reference_ = false;
    decode_object(object);
    blank_ = nullptr;
    T* wanted = as<T>(object);
    if (object && (!wanted || was_reference_)) {
        drop(object);
        return nullptr;
    }
    return wanted;
}

template <class T> T* decoder::take_owned(int id, T* blank) {
    if (status_ || !at_field(id))
        return nullptr;
    blank_ = blank;
    return take_owned_object<T>();
}

} // namespace km
