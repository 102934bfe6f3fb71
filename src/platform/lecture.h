#pragma once

#include <string>

namespace tavi {

// The outcome of reading the address shown in a browser's front tab.
struct Lecture {
    enum class Cas {
        url,       // `adresse` holds the address, never empty
        aucune,    // nothing to read: no window, an empty address, the browser is not running
        refusee,   // the user has not allowed the agent to read this browser
        illisible, // the browser is not supported, or reading failed for another reason
    };
    Cas cas = Cas::illisible;
    std::string adresse;

    static Lecture url(std::string adresse) { return {Cas::url, std::move(adresse)}; }
    static Lecture aucune() { return {Cas::aucune, {}}; }
    static Lecture refusee() { return {Cas::refusee, {}}; }
    static Lecture illisible() { return {Cas::illisible, {}}; }

    friend bool operator==(const Lecture&, const Lecture&) = default;
};

} // namespace tavi
