#pragma once

#include "rules/consigne.h"

#include <QWidget>
#include <functional>
#include <optional>

class QScrollArea;

namespace tavi {

struct CeQueVoient;

// The panel of what the parents can and cannot see, for the rule set it is given; its one
// button, "J'ai compris", runs `compris`. It only displays: the host decides what the
// acknowledgement does. Its lists sit in a scroll area that the host may make lower than they
// are (see AccueilVue), the button below them.
class CeQueVoientVue : public QWidget {
public:
    CeQueVoientVue(const std::optional<Consigne>& consigne, std::function<void()> compris,
                   QWidget* parent = nullptr);

private:
    static QScrollArea* defilement(const CeQueVoient& panneau);
};

} // namespace tavi
