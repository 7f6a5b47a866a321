#include "colour/view_color_manager.h"

#include "settings/settings_values.h"

ORVO_REGISTER_NODE(TdnViewColorManager)
ORVO_DEPENDENCIES(TdnViewColorManager) {}

Tstring TdnViewColorManager::getExternalContent() const {
    return orvo::settings::text(*this, aLutFile);
}

void TdnViewColorManager::setExternalContent(const Tstring& lutFile) {
    orvo::settings::setText(*this, aLutFile, lutFile);
}
