// Attempts for other programs.
#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <string_view>

#include "station/index/record.h"

namespace station::index {

enum class Format {
    json,       // {"schema":"q7-station-attempts","version":1,"attempts":[...]}, an attempt a line
    csv_runs,   // a row an attempt
    csv_items,  // a row a reason, or an item without one
    junit,      // a test suite an attempt, a case an item
};

// Writes head, attempts and end, in this order. A stream that fails is the caller's to notice.
class Exporter {
  public:
    Exporter(std::ostream& out, Format format);
    void add(const AttemptRecord& record);
    void finish();

  private:
    std::ostream& out_;
    Format format_;
    bool first_ = true;
};

// A field of CSV. A spreadsheet takes a text that begins with = + - @ (of full width, too), a tab or
// a line end for a formula: it gets an apostrophe in front, unless it is a plain number.
std::string csv_field(std::string_view text);
// A text of XML, also within quotes. What XML cannot hold becomes \xNN.
std::string xml_text(std::string_view text);

}  // namespace station::index
