#pragma once

#include "platform/copies.h"

#include <functional>

namespace tavi {

// The other copies of the agent, as the test sets them: `autre` answers autreInstance at once,
// `quandMontrer` is what the copy that holds the place gave.
class FaussesCopies : public Copies {
public:
    void autreInstance(std::function<void(bool)> reponse) override { reponse(autre); }
    void tenir(bool agent, std::function<void()> quand) override {
        tenue = true;
        tenueParAgent = agent;
        quandMontrer = std::move(quand);
    }
    void montrer(std::function<void()> fini) override {
        ++montres;
        fini();
    }

    bool autre = false;
    bool tenue = false;
    bool tenueParAgent = false;
    int montres = 0;
    std::function<void()> quandMontrer;
};

} // namespace tavi
