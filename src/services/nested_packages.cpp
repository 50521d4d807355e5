// nested_packages: packages nested in a package
// format: docs/formats/package-file.md
// invariant: its elements are pairs
#include "nested_packages.h"

#include "base/msg_supp.h"
#include "codec.h"
#include "exporter.h"
#include "importer.h"
#include "pair.h"

#include <memory>
#include <string>

namespace km {

bool nested_package_list::holds(const ustring& name, const ustring& version) const {
    return index_of(pair(name, version)) >= 0;
}

const char* nested_package_list::codable_name() const {
    return "com.ombrel.sd.cmObjects.NestedPackageList";
}

void nested_package_list::encode_object(encoder& to) const {
    vector_iterator all(const_cast<nested_package_list*>(this));
    to.encode_iterator(100, &all);
}

codable* nested_package_list::decode_object(decoder& from, long) {
    iterator* read = nullptr;
    from.decode_iterator(100, read);
    std::unique_ptr<iterator> elements(read);
    while (elements && elements->hasMoreElements()) {
        codable* one = elements->nextElement();
        if (dynamic_cast<pair*>(one)) {
            push_back(one);
            continue;
        }
        from.forget(one);
        delete one;
        from.set_status(decoder::failed);
    }
    return this;
}

void nested_package_list::import(importer& from) {
    ustring word;
    while (from.next_word(&word)) {
        if (word != ustring(u"package")) {
            from.unread_word();
            return;
        }
        ustring name, version;
        from.get_string("name", &name);
        from.get_string("version", &version);
        if (!holds(name, version))
            push_back(new pair(name, version));
        else if (from.messages)
            from.messages->add(328L, std::to_string(from.line_number()).c_str(),
                               (name + ustring(u"^") + version).mbcs_str());
        if (!from.next_word(&word) || word != ustring(u"end")) {
            from.flags = importer::unclosed_block;
            return;
        }
    }
}

void nested_package_list::export_(exporter& to) const {
    for (int i = 0; i < size(); ++i) {
        const auto* one = at<pair>(i);
        to.begin_stanza("package");
        to.put_string("name", one->get_key());
        to.put_string("version", one->get_value());
        to.end_stanza();
    }
}

extern "C" codable* make_NestedPackageList() { return new nested_package_list; }

} // namespace km
