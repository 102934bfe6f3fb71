#include "observation/file_navigateurs.h"

#include "observation/navigateurs.h"

#include <chrono>

namespace tavi {

namespace {

// A browser script carries its own 3-second timeout; this bound holds even for a reader that
// ignores it.
constexpr std::chrono::milliseconds delaiParNavigateur{3000};

} // namespace

FileNavigateurs::FileNavigateurs(Boucle& laBoucle, Navigation& laNavigation)
    : boucle(laBoucle), navigation(laNavigation) {
    fil = std::thread([this] { travailler(); });
}

FileNavigateurs::~FileNavigateurs() {
    vivant.reset();
    if (enVol) {
        enVol->abandonne = true;
        // Released here, on the main thread, whatever it holds.
        enVol->suite = nullptr;
    }
    std::deque<std::function<void()>> restantes;
    {
        std::lock_guard verrou(mutex);
        arret = true;
        restantes.swap(taches);
    }
    reveil.notify_all();
    fil.join();
}

bool FileNavigateurs::lire(std::vector<std::string> ids, std::function<void(Resultats)> suite) {
    if (enVol) return false;
    auto vol = std::make_shared<Vol>();
    vol->ids = std::move(ids);
    vol->suite = std::move(suite);
    enVol = vol;
    armer(vol, 0);
    deposer([this, vol] { lireSurLeFil(vol); });
    return true;
}

void FileNavigateurs::vider(std::string id) {
    deposer([this, id = std::move(id)] { Navigateurs::vider(navigation, id); });
}

void FileNavigateurs::deposer(std::function<void()> tache) {
    {
        std::lock_guard verrou(mutex);
        taches.push_back(std::move(tache));
    }
    reveil.notify_one();
}

void FileNavigateurs::travailler() {
    for (;;) {
        std::function<void()> tache;
        {
            std::unique_lock verrou(mutex);
            reveil.wait(verrou, [this] { return arret || !taches.empty(); });
            if (arret) return;
            tache = std::move(taches.front());
            taches.pop_front();
        }
        tache();
    }
}

// On the worker.
void FileNavigateurs::lireSurLeFil(const std::shared_ptr<Vol>& vol) {
    std::weak_ptr<int> jeton = vivant;
    for (const std::string& id : vol->ids) {
        // Results already given (a browser hung) or the object is going: read no further.
        if (vol->abandonne) break;
        Lecture lecture = Navigateurs::lire(navigation, id);
        boucle.poster([this, jeton, vol, lecture = std::move(lecture)]() mutable {
            if (!jeton.expired()) recu(vol, std::move(lecture));
        });
    }
    boucle.poster([this, jeton, vol] {
        if (!jeton.expired()) fini(vol);
    });
}

void FileNavigateurs::armer(const std::shared_ptr<Vol>& vol, std::size_t rang) {
    if (rang >= vol->ids.size()) return;
    std::weak_ptr<int> jeton = vivant;
    boucle.plusTard(delaiParNavigateur, [this, jeton, vol, rang] {
        if (jeton.expired() || vol->livre || vol->lues.size() > rang) return;
        livrer(*vol);
    });
}

void FileNavigateurs::recu(const std::shared_ptr<Vol>& vol, Lecture lecture) {
    if (vol->livre) return;
    vol->lues.push_back(std::move(lecture));
    armer(vol, vol->lues.size());
}

void FileNavigateurs::fini(const std::shared_ptr<Vol>& vol) {
    if (enVol == vol) enVol.reset();
    if (!vol->livre) livrer(*vol);
}

void FileNavigateurs::livrer(Vol& vol) {
    vol.livre = true;
    vol.abandonne = true;
    Resultats resultats;
    for (std::size_t i = 0; i < vol.ids.size(); ++i)
        resultats.emplace_back(vol.ids[i],
                               i < vol.lues.size() ? vol.lues[i] : Lecture::illisible());
    // Last: the continuation may start the next reading, or destroy this object.
    auto suite = std::move(vol.suite);
    vol.suite = nullptr;
    if (suite) suite(std::move(resultats));
}

} // namespace tavi
