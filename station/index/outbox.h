// Attempts on their way to the index: each is first a file beside the journals, then in the
// database, then the file goes. A database that is away delays nothing for longer than kPatience_s.
#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>

#include "station/index/record.h"

namespace station::index {

// The file of an attempt in the folder of copies. Throws std::invalid_argument where the id is
// more than letters, digits and dashes.
std::filesystem::path waiting_copy(const std::filesystem::path& folder, const std::string& id);
// Writes and flushes the copy. Throws std::system_error when it cannot, with nothing left behind.
void write_waiting_copy(const std::filesystem::path& folder, const AttemptRecord& record);
std::size_t count_waiting(const std::filesystem::path& folder);

class Outbox {
  public:
    // Sends from then on, in a thread of its own, what waits in the folder, which is made.
    Outbox(std::filesystem::path folder, std::string url);
    ~Outbox();
    Outbox(const Outbox&) = delete;
    Outbox& operator=(const Outbox&) = delete;

    struct Stored {
        bool committed = false;  // else the copy waits, and is sent later
        std::size_t unsent = 0;
    };
    // Returns when the attempt is safe, at the latest kPatience_s after its copy was written.
    // Throws std::system_error when not even the copy can be written.
    Stored store(const AttemptRecord& record);

    std::size_t unsent() const;
    // Why the latest copy could not be sent; empty = it was.
    std::string problem() const;

  private:
    struct Sender;
    std::shared_ptr<Sender> sender_;
};

}  // namespace station::index
