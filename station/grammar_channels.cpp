// Network ports and USB disks: in net mode their records have to be brought together with printed
// lines, whose order among the records is unknown.
#include <algorithm>
#include <set>

#include "station/grammar.h"

namespace station {
namespace {

constexpr char kByCount[] = "the place follows from the order of each channel and the counts";

}  // namespace

// Network.

bool Grammar::port_type(const Row& row) {
    if (!may_stand(row) || mode_.kind == Mode::Kind::single) return false;
    for (const Segment& segment : now_.segments) {
        if (std::string_view(segment.port) == row.first) return false;
    }
    if (!now_.segments.empty()) now_.segments.back().over = true;
    const int line = line_->fragments.front().line;
    now_.segments.push_back({row.first, line, true, true, false});
    if (!two_channels()) now_.passes.push_back({row.first, 0, line, NetworkPass::nothing});
    return true;
}

bool Grammar::port_refused(const Row& row) {
    if (!may_stand(row) || now_.segments.empty()) return false;
    Segment& segment = now_.segments.back();
    if (std::string_view(segment.port) != row.first || !segment.selected) return false;
    segment.selected = false;
    return add_here(std::string("network.") + row.first + ".selected", std::string("no"));
}

bool Grammar::no_socket(const Row& row) {
    if (!now_.segments.empty()) now_.segments.back().socket = false;
    return failure(row);
}

// "网卡1:" and, on the same line, its link. Each pass over the ports begins with number 1.
bool Grammar::port_number(const Row& row) {
    if (!may_stand(row)) return false;
    const Capture number = captures_[0], rest = captures_[1];
    const bool alone = mode_.kind == Mode::Kind::single;
    if ((two_channels() || (alone && now_.passes.empty())) && number.number == 1) {
        const int line = line_->fragments.front().line;
        now_.passes.push_back({alone ? "port" : "", 0, line, NetworkPass::nothing});
    }
    if (now_.passes.empty()) return false;
    NetworkPass& pass = now_.passes.back();
    if (number.number != pass.ports + 1) {
        pass.await = NetworkPass::nothing;
        return reads_again_ && match_part(Source::reported, rest.text, rest.at);
    }
    ++pass.ports;
    pass.await = NetworkPass::link;
    return match_part(Source::reported, rest.text, rest.at);
}

bool Grammar::add_port_fact(const char* name, Value value, const char* unit, std::size_t offset) {
    const NetworkPass& pass = now_.passes.back();
    const std::string place = std::to_string(pass.ports) + "." + name;
    const std::size_t piece = piece_at(offset_ + offset);
    const int line = evidence_.pieces[piece].line;
    if (pass.port.empty()) {
        now_.waiting.push_back(
            {now_.passes.size() - 1, place, std::move(value), unit, line, piece});
        return true;
    }
    if (!add("network." + pass.port + "." + place, std::move(value), unit, line)) return false;
    attach(piece, evidence_.facts.size() - 1);
    return true;
}

bool Grammar::port_link(const Row& row) {
    if (!may_stand(row)) return false;
    if (now_.passes.empty() || now_.passes.back().await != NetworkPass::link) {
        if (std::string_view(row.first) == "up") return false;
        return failure(row);  // wherever it belongs
    }
    const bool up = std::string_view(row.first) == "up";
    now_.passes.back().await = up ? NetworkPass::speed : NetworkPass::nothing;
    return add_port_fact("link", std::string(row.first), "", 0);
}

bool Grammar::port_speed(const Row& row) {
    if (!may_stand(row)) return false;
    const Capture speed = captures_.empty() ? Capture{} : captures_[0];
    const bool fast = speed.number == 1000;
    const bool awaited = !now_.passes.empty() && now_.passes.back().await == NetworkPass::speed;
    if (!awaited) {
        if (fast && std::string_view(row.first) == "full") return false;
        return failure(row);
    }
    now_.passes.back().await = fast ? NetworkPass::nothing : NetworkPass::hint;
    return add_port_fact("duplex", std::string(row.first), "", 0)
           && add_port_fact("speed", speed.number, "Mbit/s", speed.at);
}

bool Grammar::port_speed_failed(const Row& row) {
    if (may_stand(row) && !now_.passes.empty()) now_.passes.back().await = NetworkPass::nothing;
    return failure(row);
}

bool Grammar::port_hint(const Row& row) {
    if (!may_stand(row)) return false;
    if (now_.passes.empty() || now_.passes.back().await != NetworkPass::hint) return failure(row);
    now_.passes.back().await = NetworkPass::nothing;
    return true;
}

// In net mode the records of the ports come in passes, and only printed lines say which port type
// was selected for each. Both orders are certain, so the passes and the selections pair off.
void Grammar::finish_network() {
    if (!now_.segments.empty() && (command_.ended || now_.step > Step::network)) {
        now_.segments.back().over = true;
    }
    std::vector<const Segment*> examined;
    for (const Segment& segment : now_.segments) {
        if (segment.selected && segment.socket) examined.push_back(&segment);
        if (segment.selected && segment.over) {
            derive(std::string("network.") + segment.port + ".selected", std::string("yes"),
                   segment.line);
        }
    }
    const bool pairs = now_.passes.size() == examined.size()
                       || (!command_.ended && now_.passes.size() <= examined.size());
    if (two_channels() && pairs) {
        for (std::size_t i = 0; i < now_.passes.size(); ++i)
            now_.passes[i].port = examined[i]->port;
    }
    for (const NetworkPass& pass : now_.passes) {
        if (!pass.port.empty()) {
            add("network." + pass.port + ".ports", std::int64_t{pass.ports}, "", pass.line, true);
        }
    }
    for (Waiting& fact : now_.waiting) {
        const std::string& port = now_.passes[fact.group].port;
        if (port.empty()) {
            find_without_place(fact);
            continue;
        }
        if (add("network." + port + "." + fact.name, std::move(fact.value), fact.unit, fact.line,
                false, kByCount)) {
            attach(fact.piece, evidence_.facts.size() - 1);
        }
    }
    now_.waiting.clear();
    for (const Segment* segment : examined) {
        const bool no_ports = now_.passes.empty() && segment->over && now_.unexplained.empty();
        if (no_ports && command_.ended) {
            derive(std::string("network.") + segment->port + ".ports", std::int64_t{0},
                   segment->line);
        }
    }
}

// What was said of a port, and nothing tells of which.
void Grammar::find_without_place(const Waiting& fact) {
    const bool good = fact.value == Value(std::string("up"))
                      || fact.value == Value(std::string("full"))
                      || fact.value == Value(std::int64_t{1000});
    Piece& piece = evidence_.pieces[fact.piece];
    piece.kind = good ? Piece::Kind::unexplained : Piece::Kind::failure;
    evidence_.findings.push_back({good ? Finding::Kind::unexplained : Finding::Kind::failure,
                                  command_.number, fact.line, piece.channel, piece.step, piece.text,
                                  command_.ended});
}

// USB.

bool Grammar::usb_disk(const Row& row) {
    if (!may_stand(row) || !is_node(captures_[0].text)) return false;
    const std::size_t piece = piece_at(offset_);
    now_.usb_rows.push_back({std::string(captures_[0].text), UsbRow::Kind::disk,
                             captures_[1].number, evidence_.pieces[piece].line, piece});
    return true;
}

bool Grammar::usb_failed(const Row& row) {
    const Capture rest = captures_[0];
    if (!failure(row)) return false;
    const std::size_t piece = piece_at(offset_);
    now_.usb_rows.push_back({"", UsbRow::Kind::failed, 0, evidence_.pieces[piece].line, piece});
    return match_part(Source::reported, rest.text, rest.at);
}

bool Grammar::usb_none(const Row& row) {
    if (!may_stand(row)) return false;
    const std::size_t piece = piece_at(offset_);
    now_.usb_rows.push_back({"", UsbRow::Kind::none, 0, evidence_.pieces[piece].line, piece});
    return true;
}

bool Grammar::usb_rear(const Row& row) {
    if (!may_stand(row)) return false;
    const char* run = now_.usb_prompt_line != 0 ? "2" : "1";
    return add_here(std::string("usb.") + run + ".rear." + row.first, std::string(row.second));
}

bool Grammar::usb_again(const Row& row) {
    if (!may_stand(row) || now_.usb_prompt_line != 0) return false;
    if (!add_here("usb.runs", std::int64_t{2})) return false;
    now_.usb_prompt_line = evidence_.pieces[piece_at(0)].line;
    now_.usb_rows_before_prompt = now_.usb_rows.size();
    return true;
}

// How many of the rows belong to the first run; none when nothing says.
std::optional<std::size_t> Grammar::first_run_of_usb(std::size_t& runs) const {
    const std::vector<UsbRow>& rows = now_.usb_rows;
    runs = now_.usb_prompt_line != 0 ? 2 : 1;
    if (runs == 1) return rows.size();
    if (!two_channels()) return now_.usb_rows_before_prompt;
    // The first run found as many devices as the board has ports, the second as many as the
    // summary says; the mice among them are the same.
    const Fact* const ports = evidence_.find(prefixed("start.usb"));
    const Fact* const found = evidence_.find(prefixed("usb.found"));
    const auto disks = std::count_if(
        rows.begin(), rows.end(), [](const UsbRow& row) { return row.kind == UsbRow::Kind::disk; });
    std::size_t first = 0;
    if (found == nullptr) {  // the run has not come so far
        std::set<std::string> names;
        while (first < rows.size()
               && (rows[first].node.empty() || names.insert(rows[first].node).second))
            ++first;
        return first;
    }
    if (ports == nullptr) return std::nullopt;
    const std::int64_t twice =
        disks + std::get<std::int64_t>(ports->value) - std::get<std::int64_t>(found->value);
    if (twice < 0 || twice % 2 != 0 || twice / 2 > disks) return std::nullopt;
    for (std::int64_t left = twice / 2; left > 0; ++first)
        left -= rows[first].kind == UsbRow::Kind::disk ? 1 : 0;
    if (twice == 0 && !rows.empty() && rows.front().kind == UsbRow::Kind::none) first = 1;
    return first;
}

void Grammar::finish_usb() {
    const bool seen = std::count(now_.seen.begin(), now_.seen.end(), Step::usb) > 0;
    if (!seen && now_.usb_rows.empty()) return;
    std::size_t runs = 0;
    const std::optional<std::size_t> first = first_run_of_usb(runs);
    if (!first) return;
    const char* const doubt = two_channels() && runs == 2 ? kByCount : "";
    const int line = now_.usb_rows.empty() ? now_.usb_prompt_line : now_.usb_rows.front().line;
    if (runs == 1 && line != 0) derive("usb.runs", std::int64_t{1}, line);
    for (std::size_t run = 0; run < runs; ++run) {
        const std::size_t from = run == 0 ? 0 : *first,
                          to = run == 0 ? *first : now_.usb_rows.size();
        const std::string name = "usb." + std::to_string(run + 1) + ".";
        std::int64_t disks = 0, failed = 0;
        for (std::size_t i = from; i < to; ++i) {
            const UsbRow& row = now_.usb_rows[i];
            failed += row.kind == UsbRow::Kind::failed ? 1 : 0;
            if (row.kind != UsbRow::Kind::disk) continue;
            ++disks;
            if (add(name + row.node + ".free", row.free_mb, "MB", row.line, false, doubt)) {
                attach(row.piece, evidence_.facts.size() - 1);
            }
        }
        if (from == to) continue;
        const int at = now_.usb_rows[from].line;
        add(name + "disks", disks, "", at, true, doubt);
        add(name + "failed", failed, "", at, true, doubt);
        const Fact* const found = evidence_.find(prefixed("usb.found"));
        if (run + 1 == runs && found != nullptr) {
            const int found_line = found->line;
            derive("usb.mice", std::get<std::int64_t>(found->value) - disks, found_line);
        }
    }
}

}  // namespace station
