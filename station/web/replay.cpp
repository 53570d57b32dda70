#include <algorithm>
#include <string_view>

#include "station/evidence.h"
#include "station/index/record.h"
#include "station/journal.h"
#include "station/judge.h"
#include "station/text.h"
#include "station/web/record.h"
#include "station/web/state.h"

namespace station::web {
namespace {

using nlohmann::json;

constexpr double kFrame_s = 0.5;  // states closer together become one

// The time of a line of the journal: it stands behind the hash, for each kind.
double time_of(std::string_view line) {
    constexpr std::string_view kAt = "\"at\":\"";
    const std::size_t from = line.find(kAt) + kAt.size();
    const std::size_t end = line.find('"', from);
    return static_cast<double>(index::parse_time(line.substr(from, end - from)).utc_ms) / 1000;
}

std::vector<std::string> open_questions(const Journal& journal) {
    std::vector<std::string> open;
    for (const Remark& remark : journal.remarks) {
        const bool answered =
            std::any_of(journal.answers.begin(), journal.answers.end(),
                        [&](const Answer& answer) { return answer.question == remark.text; });
        if (remark.kind == "question" && !answered) open.push_back(remark.text);
    }
    return open;
}

class Replay {
  public:
    Replay(const Plan& plan, const Learned& learned) : plan_(plan), learned_(learned) {}

    void add(const Journal& journal, double at_s) {
        const Evidence evidence = take_evidence(journal);
        const std::vector<std::string> open = open_questions(journal);
        json facts = facts_json(plan_, evidence);
        json news = json::object();
        for (const auto& [name, fact] : facts.items())
            if (facts_.value(name, json()) != fact) news[name] = fact;
        facts_ = std::move(facts);
        frames_.push_back({{"at", at_s},
                           {"step", running_step(evidence)},
                           {"steps", running_steps(plan_, evidence, open, learned_)},
                           {"facts", std::move(news)},
                           {"answers", answers_json(journal, open)},
                           {"question", open.empty() ? json() : json(open.front())}});
    }

    json frames() { return std::move(frames_); }

  private:
    const Plan& plan_;
    const Learned& learned_;
    json facts_ = json::object(), frames_ = json::array();
};

}  // namespace

json replay_json(const std::filesystem::path& journals, const std::string& id) {
    const std::filesystem::path path = journal_of(journals, id);
    const std::string text = read_file(path.string());
    const Journal whole = parse_journal(text);
    const Plan plan = Plan::parse(whole.identity.plan_text, id);
    const Evidence evidence = take_evidence(whole);
    const Judgement judgement = judge(whole, evidence, plan);
    const Learned learned = durations(evidence);

    Replay replay(plan, learned);
    JournalReader reader;
    double begin_s = 0, latest_s = -kFrame_s, at_s = 0;
    std::string_view rest = text;
    while (!rest.empty() && reader.journal().lines < whole.lines) {
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        const std::string_view line = rest.substr(0, end);
        rest.remove_prefix(std::min(end + 1, rest.size()));
        const double time_s = time_of(line);
        if (reader.journal().lines == 0) begin_s = time_s;
        at_s = time_s - begin_s;
        // What came so far was to be seen until this line.
        if (reader.journal().lines > 0 && at_s >= latest_s + kFrame_s) {
            replay.add(reader.journal(), latest_s = at_s);
        }
        if (!reader.take(line, rest)) break;
        if (reader.journal().ended) break;  // the scan at the release came later
    }
    json verdict = for_page(to_json(judgement));
    verdict["number"] = whole.identity.attempt.value_or(1);
    return {{"id", id},
            {"serial", whole.identity.serial},
            {"number", whole.identity.attempt.value_or(1)},
            {"mark", whole.identity.mark},
            {"plan", plan_json(plan)},
            {"seconds", at_s},
            {"frames", replay.frames()},
            {"steps", judged_steps(plan, evidence, judgement, learned)},
            {"facts", facts_json(plan, evidence)},
            {"answers", answers_json(whole, {})},
            {"verdict", std::move(verdict)}};
}

}  // namespace station::web
