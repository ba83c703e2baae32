#pragma once

#include <string>

#include "ctrl/GameConfig.h"

namespace velour::ctrl {

GameConfig getGameConfig();
bool get4DSupportFlag();
bool get4DSwitchFlag();
std::string getCurrentEffect();
std::string getCurrentRusData();
std::string getCurrent4DRusData();
void setGamePlayDetected(bool detected);
void sendWeaponToDova(const char* name);

std::string getDefaultFilterConfig();
std::string getUpdatedFilterConfig();
std::string getGameDataFile(const std::string& name);
std::string getDefaultGameDataFile(const std::string& name);

}  // namespace velour::ctrl

extern "C" bool getGameConfigEnable();
