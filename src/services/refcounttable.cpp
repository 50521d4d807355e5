// refcounttable: counts of the packages that share an object
// format: docs/formats/reference-counts.md
// invariant: an object without references is not in the table
#include "refcounttable.h"

#include "channel.h"
#include "codec.h"
#include "decode_channel.h"
#include "durable.h"
#include "encode_channel.h"
#include "file.h"
#include "kill_point.h"
#include "trclog.h"

#include <algorithm>
#include <climits>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <utility>

namespace km {

const char* counter_element::codable_name() const {
    return "com.ombrel.sd.cmObjects.counter_element";
}

void counter_element::encode_object(encoder& to) const {
    to.encode_string_field(1, name);
    to.encode_string_field(2, version);
    to.encode_integer_field(3, count);
}

codable* counter_element::decode_object(decoder& from, long) {
    from.decode_string_field(1, name);
    from.decode_string_field(2, version);
    from.decode_integer_field(3, count);
    return this;
}

int counter::index_of(const ustring& package, const ustring& package_version) const {
    for (int i = 0; i < elements_.size(); ++i)
        if (elements_.at<counter_element>(i)->is_of(package, package_version))
            return i;
    return -1;
}

int counter::get_counter(const ustring& package, const ustring& package_version) const {
    const auto* element = elements_.at<counter_element>(index_of(package, package_version));
    return element ? element->count : 0;
}

long counter::get_absolute_counter() const {
    long sum = 0;
    for (int i = 0; i < elements_.size(); ++i)
        sum += elements_.at<counter_element>(i)->count;
    return sum;
}

void counter::set_counter(const ustring& package, const ustring& package_version, int count) {
    if (count <= 0)
        return;
    if (auto* element = elements_.at<counter_element>(index_of(package, package_version)))
        element->count = count;
    else
        elements_.push_back(new counter_element(package, package_version, count));
}

void counter::reset_counter(const ustring& package, const ustring& package_version) {
    const int index = index_of(package, package_version);
    if (index >= 0)
        elements_.remove(index);
}

const char* counter::codable_name() const { return "com.ombrel.sd.cmObjects.counter"; }

void counter::encode_object(encoder& to) const {
    vector_iterator elements(const_cast<vector*>(&elements_));
    to.encode_iterator(1, &elements);
}

codable* counter::decode_object(decoder& from, long) {
    iterator* read = nullptr;
    from.decode_iterator(1, read);
    const std::unique_ptr<iterator> elements(read);
    while (elements && elements->hasMoreElements()) {
        codable* element = elements->nextElement();
        if (dynamic_cast<counter_element*>(element)) {
            elements_.push_back(element);
            continue;
        }
        from.set_status(decoder::failed);
        from.forget(element);
        delete element;
    }
    return this;
}

cm_ref_count_table::cm_ref_count_table(const pathname& directory, int no_backup)
    : directory_(directory) {
    KM_TRACE_FUNCTION("cm_ref_count_table::cm_ref_count_table");
    if (no_backup)
        return;
    file table(table_path()), backup(backup_path());
    if (table.exists()) {
        backup.remove(0);
        table.copy(backup, 0);
    } else {
        init();
        write_first_backup();
    }
}

cm_ref_count_table::~cm_ref_count_table() { finish_backup_flush(); }

// 0, or the error of the channel.
int cm_ref_count_table::encode_table(file_output_channel& out) const {
    if (out.get_error())
        return out.get_error();
    encode_channel channel(&out);
    encoder coder(&channel);
    coder.encode_object(table_.get());
    coder.flush();
    return out.get_error();
}

void cm_ref_count_table::drop_table_file(const pathname& path, int error) const {
    KM_TRACE(trace_error, "common", "error encoding the reference count table ..");
    KM_TRACE(trace_error, "common", "error = %d", error);
    file(path).remove(0);
}

// A failed writing leaves no file of that name.
int cm_ref_count_table::write_table(const pathname& path) {
    file_output_channel out(path, 0);
    const int error = encode_table(out);
    if (!error && sync_directory(directory_))
        return 1;
    drop_table_file(path, error);
    return 0;
}

void cm_ref_count_table::write_first_backup() {
    file_output_channel out(backup_path(), 0);
    out.set_sync_data(0);
    if (const int error = encode_table(out))
        drop_table_file(backup_path(), error);
    else
        flushes_backup_ = true;
}

void cm_ref_count_table::note_change() {
    modified_ = 1;
    if (!std::exchange(flushes_backup_, false))
        return;
    const std::string name(backup_path().mbcs_str()), directory(directory_.mbcs_str());
    backup_flush_ = std::make_unique<meanwhile>([name, directory] {
        const int written = ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
        const int done = written >= 0 && sync_descriptor(written);
        if (written >= 0)
            ::close(written);
        return done && sync_directory(pathname(directory.c_str()));
    });
}

void cm_ref_count_table::finish_backup_flush() {
    if (backup_flush_ && !backup_flush_->result())
        drop_table_file(backup_path(), 0);
    backup_flush_.reset();
}

int cm_ref_count_table::init() {
    KM_TRACE_FUNCTION("cm_ref_count_table::init");
    if (table_)
        return 1;
    const pathname path = table_path();
    file stored(path);
    if (!stored.exists()) {
        KM_TRACE(trace_info, "common",
                 "Reference count table file '%s' does not exist. Create an empty Hashtable",
                 path.mbcs_str());
        table_ = std::make_unique<Hashtable>(21, 0.75F);
        return 1;
    }
    KM_TRACE(trace_info, "common", "Reference count table file '%s' found. Decoding the Hashtable",
             path.mbcs_str());
    decode_channel channel(new buffered_input_channel(new file_input_channel(path), 65536));
    decoder coder(&channel);
    // A half-read table is none: going on with it would lose counts without a word.
    std::unique_ptr<Hashtable> read(coder.take_owned_object<Hashtable>());
    if (read && coder.get_status() == 0) {
        table_ = std::move(read);
        return 1;
    }
    KM_TRACE(trace_error, "common", "hash file is CORRUPTED!!!!!!!!!!!!");
    stored.remove(0);
    table_ = std::make_unique<Hashtable>(21, 0.75F);
    KM_TRACE(trace_error, "common", "new empty hashtable created!!");
    return 1;
}

const Hashtable* cm_ref_count_table::get_table() {
    init();
    return table_.get();
}

const counter* cm_ref_count_table::find(const ustring& object) {
    init();
    return table_->size() ? table_->get_as<counter>(object) : nullptr;
}

int cm_ref_count_table::set_counter(const ustring& object, const ustring& package,
                                    const ustring& version, int count) {
    KM_TRACE_FUNCTION("cm_ref_count_table::set_counter");
    if (count < 1)
        return reset_counter(object, package, version);
    const counter* stored = find(object);
    if (stored)
        KM_TRACE(trace_info, "common", "The object '%s' is already present in the hashtable",
                 object.mbcs_str());
    else
        KM_TRACE(trace_info, "common", "%s is not present in the hashtable", object.mbcs_str());
    auto changed = stored ? std::make_unique<counter>(*stored) : std::make_unique<counter>();
    changed->set_counter(package, version, count);
    const bool known = stored != nullptr; // the update deletes what is stored
    if (!table_->update(new ustring(object), changed.release())) {
        KM_TRACE(trace_error, "common", "%s", known ? "error on update" : "error on put");
        return 0;
    }
    note_change();
    return 1;
}

int cm_ref_count_table::reset_counter(const ustring& object, const ustring& package,
                                      const ustring& version) {
    KM_TRACE_FUNCTION("cm_ref_count_table::reset_counter");
    const counter* stored = find(object);
    if (!stored)
        return 1;
    KM_TRACE(trace_info, "common", "%s is present in the hashtable. Resetting counter for %s^%s",
             object.mbcs_str(), package.mbcs_str(), version.mbcs_str());
    auto changed = std::make_unique<counter>(*stored);
    changed->reset_counter(package, version);
    if (changed->empty()) {
        table_->remove(&object);
    } else if (!table_->update(new ustring(object), changed.release())) {
        KM_TRACE(trace_error, "common", "error on update");
        return 0;
    }
    note_change();
    return 1;
}

int cm_ref_count_table::get_ref_count(const ustring& object) {
    KM_TRACE(trace_info, "common", "getting reference counter for object '%s'", object.mbcs_str());
    const counter* stored = find(object);
    return static_cast<int>(
        std::clamp(stored ? stored->get_absolute_counter() : 0L, 0L, static_cast<long>(INT_MAX)));
}

int cm_ref_count_table::get_ref_count(const ustring& object, const ustring& package,
                                      const ustring& version) {
    const counter* stored = find(object);
    return stored ? stored->get_counter(package, version) : 0;
}

int cm_ref_count_table::commit() {
    KM_TRACE_FUNCTION("cm_ref_count_table::commit");
    finish_backup_flush();
    file backup(backup_path()), table(table_path());
    if (!modified_) {
        backup.remove(0);
        KM_TRACE(trace_info, "common", "Reference count table not modified. Nothing to do");
        return 1;
    }
    update_registry();
    auto drop_backup = [&] {
        if (backup.remove(0))
            return true;
        KM_TRACE(trace_error, "common", "Failed to remove backup reference count table '%s'",
                 backup_path().mbcs_str());
        return false;
    };
    // Where there is no table yet, its first backup stays until one is whole.
    if (table.exists() && !drop_backup())
        return 0;
    if (table_) {
        KM_TRACE(trace_info, "common", "Save the old RCT in the backup file");
        KM_KILL_POINT("counts.commit.before_backup");
        if (table.exists() && !rename_file(table_path().mbcs_str(), backup_path().mbcs_str())) {
            KM_TRACE(trace_error, "common",
                     "Failed to rename reference count table '%s' to backup '%s'",
                     table_path().mbcs_str(), backup_path().mbcs_str());
            return 0;
        }
        KM_KILL_POINT("counts.commit.backed_up");
        if (!write_table(table_path()))
            return 0;
        KM_KILL_POINT("counts.commit.written");
        if (!drop_backup())
            return 0;
    }
    modified_ = 0;
    return 1;
}

} // namespace km

extern "C" km::codable* make_counter_element() { return new km::counter_element; }
extern "C" km::codable* make_counter() { return new km::counter; }
