// Until the X probes land: no display is looked at, so every veil reads unknown.
#include "gardien/regards.h"

namespace tavi {

namespace {

class RegardsSansX : public Regards {
public:
    std::optional<RegardX> regarder(const AccesX&, pid_t) override { return std::nullopt; }
    void garderSeulement(const std::set<std::string>&) override {}
    void afficherAvis(const AccesX&, const std::string&) override {}
    void retirerAvis(const std::string&) override {}
};

} // namespace

std::unique_ptr<Regards> creerRegardsX() {
    return std::make_unique<RegardsSansX>();
}

} // namespace tavi
