#include "ctrl/HearthAsyncService.h"

#include <android/log.h>

namespace velour::ctrl {

namespace {

// The service client logs to the platform log directly, with no tag.
template <typename... Args>
void serviceLog(const char* format, Args... args) {
    __android_log_print(ANDROID_LOG_ERROR, nullptr, format, args...);
}

GameService* g_testService = nullptr;

}  // namespace

HearthAsyncService::HearthAsyncService() {
    serviceLog("New HearthAsyncService");
    getHrthService();
}

int HearthAsyncService::getHrthService() {
    serviceLog("HearthAsyncService: could not get hearth service!");
    return -1;
}

void HearthAsyncService::getHearthVersion() {
    if (getHrthService() != 0) serviceLog("HearthAsyncService getHrthService fail");
}

void HearthAsyncService::registerTesselCallback() {
    if (getHrthService() != 0) serviceLog("HearthAsyncService registerTesselCallback fail");
}

int HearthAsyncService::getVelourSupported(const char*) {
    if (getHrthService() != 0) serviceLog("HearthAsyncService getHrthService fail");
    return 1;
}

std::string HearthAsyncService::getRusFile(const char*) {
    if (getHrthService() != 0) serviceLog("getRusFile getHrthService fail");
    return {};
}

std::string HearthAsyncService::get4DRusFile(const char*) {
    if (getHrthService() != 0) serviceLog("get4DRusFile getHrthService fail");
    return {};
}

bool HearthAsyncService::get4DSupport(const char*) {
    if (getHrthService() != 0) serviceLog("get4DSupport getHrthService fail");
    return false;
}

void HearthAsyncService::sendWeaponToDova(const char*) {
    if (getHrthService() != 0) serviceLog("sendWeaponToDova getHrthService fail");
}

GameService& gameService() {
    if (g_testService) return *g_testService;
    static HearthAsyncService service;
    return service;
}

void setGameServiceForTesting(GameService* service) {
    g_testService = service;
}

}  // namespace velour::ctrl
