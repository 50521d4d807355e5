// base/spcatalog: table of the message texts
// no format on disk; translated texts are catalogue files of the system
// invariant: every index from 0 to 805 holds a text
#include "base/spcatalog.h"

#include "base/spcatalog_high.h"
#include "base/spcatalog_low.h"

namespace km {

namespace {

struct own_texts {
    const char* text[spcatalog_size] = {};
    int count = 0;
};

constexpr own_texts make_own() {
    own_texts own;
    const auto take = [&own](const auto& rows) {
        for (const auto& row : rows) {
            own.text[row.key] = row.text;
            ++own.count;
        }
    };
    take(low_rows);
    take(high_rows);
    return own;
}

constexpr own_texts own = make_own();
static_assert(own.count == 646);

constexpr const char* own_text(int key) { return own.text[key]; }

struct reserved_names {
    char text[spcatalog_size][10] = {};
};

// Reserved keys are numbered in the order of the keys.
constexpr reserved_names make_reserved() {
    reserved_names names;
    int number = 0;
    for (int key = 1; key < spcatalog_size; ++key) {
        if (own_text(key))
            continue;
        const char* head = "unused";
        for (int i = 0; i < 6; ++i)
            names.text[key][i] = head[i];
        names.text[key][6] = static_cast<char>('0' + number / 100);
        names.text[key][7] = static_cast<char>('0' + number / 10 % 10);
        names.text[key][8] = static_cast<char>('0' + number % 10);
        ++number;
    }
    return names;
}

constexpr reserved_names reserved = make_reserved();

constexpr const char* text_of(int key) {
    return key == 0 ? "spcatalog" : own_text(key) ? own_text(key) : reserved.text[key];
}

} // namespace

#define KM_TEXTS_10(k)                                                                             \
    text_of(k), text_of(k + 1), text_of(k + 2), text_of(k + 3), text_of(k + 4), text_of(k + 5),    \
        text_of(k + 6), text_of(k + 7), text_of(k + 8), text_of(k + 9)
#define KM_TEXTS_100(k)                                                                            \
    KM_TEXTS_10(k), KM_TEXTS_10(k + 10), KM_TEXTS_10(k + 20), KM_TEXTS_10(k + 30),                 \
        KM_TEXTS_10(k + 40), KM_TEXTS_10(k + 50), KM_TEXTS_10(k + 60), KM_TEXTS_10(k + 70),        \
        KM_TEXTS_10(k + 80), KM_TEXTS_10(k + 90)

const char* const spcatalog[] = {
    KM_TEXTS_100(0),   KM_TEXTS_100(100), KM_TEXTS_100(200), KM_TEXTS_100(300), KM_TEXTS_100(400),
    KM_TEXTS_100(500), KM_TEXTS_100(600), KM_TEXTS_100(700), text_of(800),      text_of(801),
    text_of(802),      text_of(803),      text_of(804),      text_of(805)};
static_assert(sizeof spcatalog / sizeof spcatalog[0] == spcatalog_size);

int is_spcatalog_key(long key) {
    return key >= 1 && key < spcatalog_size && own_text(static_cast<int>(key)) != nullptr;
}

} // namespace km
