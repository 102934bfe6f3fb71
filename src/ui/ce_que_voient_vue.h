#pragma once

#include "rules/consigne.h"

#include <QWidget>
#include <functional>
#include <optional>

namespace tavi {

// The panel of what the parents can and cannot see, for the rule set it is given; its one
// button, "J'ai compris", runs `compris`. It only displays: the host decides what the
// acknowledgement does.
class CeQueVoientVue : public QWidget {
public:
    CeQueVoientVue(const std::optional<Consigne>& consigne, std::function<void()> compris,
                   QWidget* parent = nullptr);
};

} // namespace tavi
