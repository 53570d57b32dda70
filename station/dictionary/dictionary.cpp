#include "station/dictionary/dictionary.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

namespace station {
namespace {

constexpr int kFormat = 1;

// The lines of the healthy transcript, which a defect may make absent.
void add_texts_of_healthy(const Evidence& evidence, std::map<std::string, std::string>& texts) {
    for (const Piece& piece : evidence.pieces)
        for (const std::size_t fact : piece.facts)
            texts.emplace(evidence.facts[fact].name + "=absent", piece.text);
}

// The line of the transcript that shows the symptom.
void add_texts(const SimulatedAttempt& attempt, std::map<std::string, std::string>& texts) {
    for (const Item& item : attempt.judgement.items)
        for (const Reason& reason : item.reasons) {
            if (reason.fact.empty() || reason.line == 0) continue;
            const Fact* fact = attempt.evidence.find(reason.fact);
            if (fact == nullptr || fact->derived) continue;
            const auto place = static_cast<std::size_t>(fact - attempt.evidence.facts.data());
            for (const Piece& piece : attempt.evidence.pieces)
                if (std::find(piece.facts.begin(), piece.facts.end(), place) != piece.facts.end())
                    texts.emplace(reason.fact + "=" + reason.value, piece.text);
        }
}

bool is_place_number(const std::string& text) {
    return !text.empty() && text.size() < 9
           && text.find_first_not_of("0123456789") == std::string::npos;
}

bool likelier(const KnownDefect& a, const KnownDefect& b) {
    return a.likelihood() > b.likelihood();
}

}  // namespace

std::string KnownDefect::cause() const {
    std::string text(kind->name);
    for (const std::string& place : places)
        text += " " + place;
    return text;
}

int KnownDefect::likelihood() const {
    const bool two = places.size() == 2 && is_place_number(places[0]) && is_place_number(places[1]);
    if (!two || std::abs(std::stoi(places[0]) - std::stoi(places[1])) == 1) return kind->likelihood;
    return kind->likelihood - 1;
}

std::size_t Dictionary::defects() const {
    std::size_t count = 0;
    for (const Signature& signature : signatures)
        count += signature.defects.size();
    return count;
}

void in_parallel(std::size_t count, const std::function<void(std::size_t)>& work) {
    std::atomic<std::size_t> next{0};
    std::exception_ptr error;
    std::mutex error_guard;
    const auto take_work = [&] {
        try {
            for (std::size_t i = next++; i < count; i = next++)
                work(i);
        } catch (...) {
            const std::lock_guard lock(error_guard);
            error = std::current_exception();
            next = count;
        }
    };
    std::vector<std::thread> threads;
    const std::size_t processors = std::max(1u, std::thread::hardware_concurrency());
    for (std::size_t i = 0; i < std::min(processors, count); ++i)
        threads.emplace_back(take_work);
    for (std::thread& thread : threads)
        thread.join();
    if (error) std::rethrow_exception(error);
}

Dictionary make_dictionary(const AttemptSimulator& simulator, const std::string& board_name,
                           const std::function<void(std::size_t done, std::size_t of)>& progress) {
    if (const Judgement& healthy = simulator.healthy().judgement;
        healthy.verdict != Verdict::pass) {
        std::string why;
        for (const Item& item : healthy.items)
            for (const Reason& reason : item.reasons)
                if (why.empty())
                    why = item.name + ": " + reason.code + " " + reason.fact + " " + reason.value
                          + " " + reason.text;
        throw DictionaryError("the board does not pass the plan: " + why);
    }
    const std::vector<Defect> defects = defects_of(simulator.board(), simulator.calls());
    Dictionary dictionary;
    dictionary.plan_name = simulator.plan().name;
    dictionary.plan_revision = simulator.plan().revision;
    dictionary.plan_sha256 = simulator.plan().sha256;
    dictionary.board = board_name;

    add_texts_of_healthy(simulator.healthy().evidence, dictionary.texts);

    std::vector<Symptoms> symptoms(defects.size());
    std::vector<std::string> changes(defects.size());
    std::vector<std::map<std::string, std::string>> texts(defects.size());
    std::mutex guard;
    std::size_t done = 0;
    in_parallel(defects.size(), [&](std::size_t i) {
        changes[i] = simulator.change(defects[i].apply);
        if (changes[i].empty()) return;  // two wires of one signal: as healthy
        const SimulatedAttempt attempt = simulator.run(changes[i]);
        symptoms[i] = symptoms_of(attempt.judgement, attempt.evidence);
        add_texts(attempt, texts[i]);
        const std::lock_guard lock(guard);
        if (progress) progress(++done, defects.size());
    });

    for (auto& each : texts)
        dictionary.texts.merge(each);  // in the order of the defects
    std::map<Symptoms, std::vector<KnownDefect>> groups;
    for (std::size_t i = 0; i < defects.size(); ++i)
        groups[symptoms[i]].push_back({defects[i].kind, defects[i].places, changes[i]});
    for (auto& [shown, group] : groups) {
        std::stable_sort(group.begin(), group.end(), likelier);
        dictionary.signatures.push_back({shown, std::move(group)});
    }
    return dictionary;
}

std::string to_text(const Dictionary& dictionary) {
    using Json = nlohmann::ordered_json;
    std::map<std::pair<std::string, std::string>, std::size_t> places;  // of the symptoms
    Json symptoms = Json::array();
    for (const Signature& signature : dictionary.signatures)
        for (const auto& symptom : signature.symptoms) {
            if (!places.emplace(symptom, symptoms.size()).second) continue;
            Json row{symptom.first, symptom.second};
            const auto text = dictionary.texts.find(symptom.first + "=" + symptom.second);
            if (text != dictionary.texts.end()) row.push_back(text->second);
            symptoms.push_back(std::move(row));
        }
    const Json head{{"fault_dictionary", kFormat},
                    {"plan", dictionary.plan_name},
                    {"revision", dictionary.plan_revision},
                    {"sha256", dictionary.plan_sha256},
                    {"board", dictionary.board},
                    {"defects", dictionary.defects()},
                    {"symptoms", std::move(symptoms)}};
    std::string text = head.dump() + "\n";
    for (const Signature& signature : dictionary.signatures) {
        Json shown = Json::array(), defects = Json::array();
        for (const auto& symptom : signature.symptoms)
            shown.push_back(places.at(symptom));
        for (const KnownDefect& defect : signature.defects)
            defects.push_back({defect.kind->name, defect.places, defect.change});
        text += Json{{"s", shown}, {"d", defects}}.dump() + "\n";
    }
    return text;
}

namespace {

using nlohmann::json;

Signature read_signature(const json& line, const json& symptoms) {
    Signature signature;
    for (const json& place : line.at("s")) {
        const json& symptom = symptoms.at(place.get<std::size_t>());
        signature.symptoms.emplace(symptom.at(0), symptom.at(1));
    }
    for (const json& defect : line.at("d")) {
        const Kind* kind = find_kind(defect.at(0).get<std::string>());
        if (kind == nullptr)
            throw DictionaryError("a kind of defect that this program does not know: "
                                  + defect.at(0).get<std::string>());
        signature.defects.push_back({kind, defect.at(1), defect.at(2)});
    }
    if (signature.defects.empty()) throw DictionaryError("a signature without a defect");
    return signature;
}

}  // namespace

Dictionary parse_dictionary(const std::string& text, const std::string& file) {
    Dictionary dictionary;
    std::istringstream lines(text);
    std::string line;
    try {
        std::getline(lines, line);
        const json head = json::parse(line);
        if (head.at("fault_dictionary") != kFormat)
            throw DictionaryError("another version of fault dictionaries; make it again");
        dictionary.plan_name = head.at("plan");
        dictionary.plan_revision = head.at("revision");
        dictionary.plan_sha256 = head.at("sha256");
        dictionary.board = head.at("board");
        for (const json& symptom : head.at("symptoms"))
            if (symptom.size() > 2)
                dictionary.texts.emplace(
                    symptom.at(0).get<std::string>() + "=" + symptom.at(1).get<std::string>(),
                    symptom.at(2));
        while (std::getline(lines, line))
            dictionary.signatures.push_back(read_signature(json::parse(line), head.at("symptoms")));
        if (dictionary.defects() != head.at("defects")) throw DictionaryError("it is cut off");
    } catch (const DictionaryError& error) {
        throw DictionaryError(file + ": " + error.what());
    } catch (const json::exception&) {
        throw DictionaryError(file + ": no fault dictionary, or a damaged one");
    }
    return dictionary;
}

}  // namespace station
