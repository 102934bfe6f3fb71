#include "platform/linux/copies_linux.h"

namespace tavi {

namespace {
class CopiesSeules : public Copies {
public:
    explicit CopiesSeules(Boucle& b) : boucle(b) {}
    void autreInstance(std::function<void(bool)> reponse) override {
        boucle.poster([reponse] { reponse(false); });
    }
    void tenir(bool, std::function<void()>) override {}
    void montrer(std::function<void()> fini) override { fini(); }
    Boucle& boucle;
};
} // namespace

std::unique_ptr<Copies> copiesDeSession(Boucle& boucle, BusSd&) {
    return std::make_unique<CopiesSeules>(boucle);
}

} // namespace tavi
