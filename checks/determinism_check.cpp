#include "checks/harness.h"
#include "sim/event_log.h"

namespace {

using namespace checks;

std::string everything(const Outcome& got) {
    std::string text = got.console + got.errors + got.record_bytes;
    for (const sim::Event& event : got.world->log.all())
        text += sim::to_json(event) + "\n";
    return text;
}

TEST(Determinism, SameScenarioGivesTheSameBytesAHundredTimes) {
    const int runs = full_form() ? 5000 : 100;
    for (const auto& arguments : {std::vector<std::string>{}, {"netQ7test"}}) {
        const std::string first = everything(run_with(healthy(), arguments));
        for (int i = 1; i < runs; ++i) {
            const std::string again = everything(run_with(healthy(), arguments));
            ASSERT_TRUE(again == first) << "run " << i;
        }
    }
}

}  // namespace
