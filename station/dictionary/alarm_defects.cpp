#include <algorithm>

#include "station/dictionary/enumeration.h"

namespace station {
namespace {

const SystemCall kReadInputs{"ioctl", "/dev/zebio", "0x80026B90"};

using Wiring = std::vector<std::vector<std::int64_t>>;

Wiring wiring_of(const toml::table& board) {
    Wiring wiring;
    if (const toml::array* outputs = board["alarm"]["wiring"].as_array()) {
        for (const toml::node& output : *outputs) {
            wiring.emplace_back();
            for (const toml::node& input : *output.as_array())
                wiring.back().push_back(input.value_or(std::int64_t{0}));
        }
    }
    return wiring;
}

// A change of the wiring as it then is, so that two of them can follow each other.
Apply rewired(const std::function<void(Wiring&)>& change) {
    return [=](toml::table& board) {
        Wiring wiring = wiring_of(board);
        change(wiring);
        toml::array outputs;
        for (std::vector<std::int64_t>& inputs : wiring) {
            std::sort(inputs.begin(), inputs.end());
            inputs.erase(std::unique(inputs.begin(), inputs.end()), inputs.end());
            toml::array list;
            for (const std::int64_t input : inputs)
                list.push_back(input);
            outputs.push_back(std::move(list));
        }
        table_at(board, {"alarm"}).insert_or_assign("wiring", std::move(outputs));
    };
}

Apply inputs_shorted(std::int64_t a, std::int64_t b) {
    return rewired([=](Wiring& wiring) {
        for (auto& inputs : wiring) {
            if (std::ranges::count(inputs, a) + std::ranges::count(inputs, b) != 0)
                inputs.insert(inputs.end(), {a, b});
        }
    });
}

// What drives the one reaches the other, and not the other way round.
Apply input_leaks(std::int64_t from, std::int64_t to) {
    return rewired([=](Wiring& wiring) {
        for (auto& inputs : wiring)
            if (std::ranges::count(inputs, from) != 0) inputs.push_back(to);
    });
}

Apply inputs_swapped(std::int64_t a, std::int64_t b) {
    return rewired([=](Wiring& wiring) {
        for (auto& inputs : wiring)
            for (std::int64_t& input : inputs)
                input = input == a ? b : input == b ? a : input;
    });
}

// A contact that is open or closed at one reading of the inputs alone. The first reading is that of
// no output, the next that of output 1.
Apply input_wrong_at(std::int64_t input, std::int64_t reading, const char* key) {
    return [=](toml::table& board) {
        toml::array before;
        if (const toml::array* list = board["alarm"][key].as_array()) before = *list;
        toml::array then = before;
        then.push_back(input);
        from_call(kReadInputs, reading, setting({"alarm"}, key, then))(board);
        from_call(kReadInputs, reading + 1, setting({"alarm"}, key, before))(board);
    };
}

void add_alarm_contacts(Enumeration& all) {
    const Wiring wiring = wiring_of(all.board);
    const auto readings = static_cast<std::int64_t>(wiring.size()) + 1;
    if (all.count_of(kReadInputs) != readings) return;
    for (std::int64_t a = 1;
         a <= std::min(all.number("hardware", "alarm_inputs"), std::int64_t{16}); ++a)
        for (std::int64_t reading = 1; reading <= readings; ++reading) {
            const bool is_driven =
                reading > 1
                && std::ranges::count(wiring[static_cast<std::size_t>(reading - 2)], a) != 0;
            all.add("alarm.input.loose", {std::to_string(a)},
                    input_wrong_at(a, reading, is_driven ? "dead" : "stuck"));
        }
}

}  // namespace

void add_alarm(Enumeration& all) {
    const Wiring wiring = wiring_of(all.board);
    const std::int64_t inputs = std::min(all.number("hardware", "alarm_inputs"), std::int64_t{16});
    const auto outputs = static_cast<std::int64_t>(wiring.size());
    const auto text = [](std::int64_t place) { return std::to_string(place); };
    for (std::int64_t a = 1; a <= inputs; ++a) {
        all.add("alarm.input.open", {text(a)}, numbers_added("alarm", "dead", {a}));
        all.add("alarm.input.stuck", {text(a)}, numbers_added("alarm", "stuck", {a}));
        for (std::int64_t b = a + 1; b <= inputs; ++b) {
            for (const Apply& touching :
                 {inputs_shorted(a, b), input_leaks(a, b), input_leaks(b, a)})
                all.add("alarm.inputs.shorted", {text(a), text(b)}, touching);
            all.add("alarm.inputs.swapped", {text(a), text(b)}, inputs_swapped(a, b));
        }
        for (const std::int64_t size : {4, 8}) {
            const std::int64_t last = a + size - 1;
            if (a % size == 1 && last <= inputs)
                all.add("alarm.inputs.block", {text(a), text(last)},
                        numbers_added("alarm", "dead", numbers_between(a, last)));
        }
    }
    if (inputs != 0)
        all.add("alarm.inputs.all", {}, numbers_added("alarm", "dead", numbers_between(1, inputs)));
    for (std::int64_t a = 1; a <= outputs; ++a) {
        const auto at = static_cast<std::size_t>(a - 1);
        all.add("alarm.output.dead", {text(a)}, rewired([=](Wiring& wires) { wires[at].clear(); }));
        all.add("alarm.output.stuck", {text(a)}, numbers_added("alarm", "stuck", wiring[at]));
        for (std::int64_t b = a + 1; b <= outputs; ++b) {
            const auto other = static_cast<std::size_t>(b - 1);
            all.add("alarm.outputs.swapped", {text(a), text(b)},
                    rewired([=](Wiring& wires) { std::swap(wires[at], wires[other]); }));
            all.add("alarm.outputs.joined", {text(a), text(b)}, rewired([=](Wiring& wires) {
                        wires[at].insert(wires[at].end(), wires[other].begin(), wires[other].end());
                        wires[other] = wires[at];
                    }));
        }
    }
    if (outputs != 0)
        all.add("alarm.outputs.all", {}, rewired([](Wiring& wires) {
                    for (auto& inputs_of : wires)
                        inputs_of.clear();
                }));
    add_alarm_contacts(all);
}

}  // namespace station
