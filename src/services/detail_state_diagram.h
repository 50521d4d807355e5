// detail_state_diagram: which status follows on which operation
#pragma once

namespace km {

struct status_cell {
    int next;  // status that the operation leads to
    int check; // kept with the table; nothing reads it
};

constexpr int diagram_rows = 11;
constexpr int diagram_columns = 7;

// Rows: operations 0 to 10. Columns: statuses 0 to 6.
constexpr status_cell _state_diagram[diagram_rows][diagram_columns] = {
    // clang-format off
    /* execute              */ {{2, 0}, {1, 2}, {2, 7}, {3, 2}, {4, 2}, {5, 2}, {6, 2}},
    /* execute_undoable     */ {{5, 0}, {1, 2}, {2, 8}, {3, 2}, {4, 2}, {5, 7}, {6, 2}},
    /* prepare              */ {{1, 0}, {1, 7}, {2, 8}, {3, 2}, {4, 2}, {5, 2}, {6, 2}},
    /* prepare_undoable     */ {{4, 0}, {1, 2}, {2, 8}, {3, 2}, {4, 7}, {5, 2}, {6, 2}},
    /* prepare_undo_prepare */ {{3, 0}, {1, 2}, {2, 8}, {3, 7}, {4, 2}, {5, 2}, {6, 2}},
    /* rollback             */ {{0, 7}, {0, 0}, {2, 3}, {0, 0}, {0, 0}, {5, 3}, {6, 2}},
    /* undo                 */ {{0, 7}, {1, 5}, {2, 5}, {3, 5}, {4, 5}, {0, 0}, {6, 2}},
    /* undo_ep              */ {{0, 5}, {1, 5}, {2, 5}, {3, 5}, {4, 5}, {6, 0}, {6, 7}},
    /* verify               */ {{0, 0}, {1, 0}, {2, 0}, {3, 0}, {4, 0}, {5, 0}, {6, 0}},
    /* accept               */ {{0, 5}, {1, 5}, {2, 5}, {1, 0}, {1, 0}, {2, 0}, {2, 0}},
    /* commit               */ {{0, 3}, {2, 0}, {2, 3}, {5, 0}, {5, 0}, {5, 3}, {0, 0}},
    // clang-format on
};

} // namespace km
