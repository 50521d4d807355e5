// variable_list_coding: coded form of variable lists
// format: docs/formats/coded-object.md
// invariant: a chain is coded as its last list, the only one that belongs to a package
#include "variable_list.h"

#include "codec.h"
#include "exporter.h"
#include "importer.h"
#include "pair.h"

#include <memory>

namespace km {

const char* variable_list::codable_name() const { return "com.ombrel.sd.cmObjects.VariableList"; }

void variable_list::encode_object(encoder& to) const {
    if (defaults_) {
        const_cast<variable_list*>(this)->get_defaults()->encode_object(to);
        return;
    }
    codable::encode_object(to);
    vector pairs;
    pairs.set_owns(0);
    for (Keyslist keys(*this); keys.hasMoreElements();) {
        const HashtableEntry* entry = keys.next_entry();
        const auto* name = dynamic_cast<const ustring*>(entry->get_key());
        const auto* value = dynamic_cast<const ustring*>(entry->get_value());
        if (name && value)
            pairs.push_back(to.keep(new pair(*name, *value)));
    }
    vector_iterator elements(&pairs);
    to.encode_iterator(100, &elements);
}

codable* variable_list::decode_object(decoder& from, long stream_version) {
    codable::decode_object(from, stream_version);
    iterator* read = nullptr;
    from.decode_iterator(100, read);
    const std::unique_ptr<iterator> elements(read);
    while (elements && elements->hasMoreElements()) {
        codable* element = elements->nextElement();
        if (const auto* one = dynamic_cast<const pair*>(element))
            put(one->get_key(), one->get_value());
        else
            from.set_status(decoder::failed);
        from.forget(element);
        delete element;
    }
    return this;
}

void variable_list::import(importer& from) {
    for (ustring name, value; from.next_pair(&name, &value);)
        set_value(name, value);
}

void variable_list::export_(exporter& to) const {
    for (Keyslist keys(*this); keys.hasMoreElements();) {
        const HashtableEntry* entry = keys.next_entry();
        const auto* name = dynamic_cast<const ustring*>(entry->get_key());
        const auto* value = dynamic_cast<const ustring*>(entry->get_value());
        if (name && value)
            to.put_string(name->mbcs_str(), *value);
    }
}

} // namespace km

extern "C" km::codable* make_VariableList() { return new km::variable_list; }
