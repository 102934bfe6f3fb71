#pragma once

#include "platform/boucle.h"
#include "platform/lecture.h"
#include "platform/navigation.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace tavi {

// The serial worker "tavi.navigateurs": every reading and blanking of a browser runs on its
// one thread, in turn, so that two scripts never run together and the main thread never waits
// for a browser.
//
// Main thread only. `navigation` and `boucle` must outlive the object.
class FileNavigateurs {
public:
    using Resultats = std::vector<std::pair<std::string, Lecture>>;

    FileNavigateurs(Boucle& boucle, Navigation& navigation);
    // Stops the worker; waits for the browser call under way, if any. Nothing queued runs
    // after, and no results are given.
    ~FileNavigateurs();
    FileNavigateurs(const FileNavigateurs&) = delete;
    FileNavigateurs& operator=(const FileNavigateurs&) = delete;

    // Reads each browser in turn and gives the results, in the order of `ids`, to `suite` on
    // the main thread. A browser that does not answer within 3 s is `illisible`, and so is
    // every one after it: the results go at once, and the worker stays busy until the stuck
    // call returns. False, and nothing done, while a reading is in flight or the worker is
    // stuck.
    bool lire(std::vector<std::string> ids, std::function<void(Resultats)> suite);
    // Queues the blanking of a browser's front tab.
    void vider(std::string id);
    bool occupe() const { return enVol != nullptr; }

private:
    struct Vol {
        std::vector<std::string> ids;
        std::function<void(Resultats)> suite;
        std::vector<Lecture> lues; // main thread
        bool livre = false;        // main thread
        std::atomic<bool> abandonne{false};
    };

    void deposer(std::function<void()> tache);
    void travailler();
    void lireSurLeFil(const std::shared_ptr<Vol>& vol);
    void armer(const std::shared_ptr<Vol>& vol, std::size_t rang);
    void recu(const std::shared_ptr<Vol>& vol, Lecture lecture);
    void fini(const std::shared_ptr<Vol>& vol);
    void livrer(Vol& vol);

    Boucle& boucle;
    Navigation& navigation;
    // Posted and delayed tasks hold it weakly: once it is gone they do nothing.
    std::shared_ptr<int> vivant = std::make_shared<int>(0);
    std::shared_ptr<Vol> enVol;

    std::mutex mutex;
    std::condition_variable reveil;
    std::deque<std::function<void()>> taches;
    bool arret = false;
    std::thread fil;
};

} // namespace tavi
