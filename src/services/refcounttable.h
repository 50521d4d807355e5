// refcounttable: counts of the packages that share an object
//
// Per shared object (by its name) how many references each package holds. The table is one coded
// Hashtable, "rct.tme", rewritten whole by commit(); "rctbak.tme" holds the table as it stood
// before the current work. No lock: the catalog's guards it. The page of the format:
// docs/formats/reference-counts.md.
#pragma once

#include "background_thread.h"
#include "hashtable.h"
#include "pathname.h"
#include "vector.h"

#include <memory>

namespace km {

class file_output_channel;

// Coded form: string field 1 name, string field 2 version, integer field 3 count.
class counter_element : public codable {
  public:
    counter_element() = default;
    counter_element(const ustring& package, const ustring& package_version, int references)
        : name(package), version(package_version), count(references) {}
    codable* clone() const override { return new counter_element(*this); }
    bool is_of(const ustring& package, const ustring& package_version) const {
        return name == package && version == package_version;
    }
    const char* codable_name() const override;
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;
    void import(importer&) override {}
    void export_(exporter&) const override {}
    long codable_version() const override { return 1; }

    ustring name;
    ustring version;
    std::int32_t count = 0;
};

// Coded form: iterator field 1 of counter_elements.
class counter : public codable {
  public:
    // 0 if the package holds none.
    int get_counter(const ustring& package, const ustring& version) const;
    long get_absolute_counter() const;
    // A count of 0 or below does nothing.
    void set_counter(const ustring& package, const ustring& version, int count);
    void reset_counter(const ustring& package, const ustring& version);
    bool empty() const { return elements_.empty(); }
    const vector& get_elements() const { return elements_; }

    codable* clone() const override { return new counter(*this); }
    const char* codable_name() const override;
    codable* decode_object(decoder& from, long stream_version) override;
    void encode_object(encoder& to) const override;
    void import(importer&) override {}
    void export_(exporter&) const override {}
    long codable_version() const override { return 1; }

  private:
    int index_of(const ustring& package, const ustring& version) const;
    vector elements_;
};

class cm_ref_count_table {
  public:
    // With `no_backup` 0 the backup becomes a copy of the table as it stands (an empty table where
    // there is none): what a backup held before is gone, so a host restores before it constructs.
    cm_ref_count_table(const pathname& directory, int no_backup);
    virtual ~cm_ref_count_table();
    cm_ref_count_table(const cm_ref_count_table&) = delete;
    cm_ref_count_table& operator=(const cm_ref_count_table&) = delete;

    // Writes what changed: the old table becomes the backup, the new one is written and flushed,
    // the backup goes. 1, or 0; after a 0 the old table is in one of the two files.
    virtual int commit();
    // A count below 1 takes the package's references away. 1 or 0. Nothing is on disk before
    // commit().
    virtual int set_counter(const ustring& object, const ustring& package, const ustring& version,
                            int count);
    virtual int reset_counter(const ustring& object, const ustring& package,
                              const ustring& version);
    // Sum over all packages, at least 0.
    virtual int get_ref_count(const ustring& object);
    virtual int get_ref_count(const ustring& object, const ustring& package,
                              const ustring& version);
    virtual int update_registry() { return 1; }

    // The decoded table, for looking at; null only before the first use.
    const Hashtable* get_table();

  private:
    int init();
    int encode_table(file_output_channel& out) const;
    int write_table(const pathname& path);
    void write_first_backup();
    // Nothing needs the first backup on disk before a counter is on its way there: its flush begins
    // with the first change, in the background.
    void note_change();
    void finish_backup_flush();
    void drop_table_file(const pathname& path, int error) const;
    const counter* find(const ustring& object);
    pathname table_path() const { return directory_ + ustring(u"rct.tme"); }
    pathname backup_path() const { return directory_ + ustring(u"rctbak.tme"); }

    std::unique_ptr<Hashtable> table_;
    pathname directory_;
    int modified_ = 0;
    bool flushes_backup_ = false;
    std::unique_ptr<meanwhile> backup_flush_;
};

} // namespace km
