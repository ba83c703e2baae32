#pragma once

#include <string>

namespace velour::ctrl {

// The game service daemon's operations, as the layer uses them. Each answers
// its documented failure value when the service cannot be reached.
class GameService {
  public:
    virtual ~GameService() = default;
    virtual void getHearthVersion() = 0;
    virtual void registerTesselCallback() = 0;
    // 0 run without the deferred path, 1 and 3 as configured, 2 or above 3 not at all.
    virtual int getVelourSupported(const char* package) = 0;
    virtual std::string getRusFile(const char* package) = 0;
    virtual std::string get4DRusFile(const char* package) = 0;
    virtual bool get4DSupport(const char* package) = 0;
    virtual void sendWeaponToDova(const char* weapon) = 0;
};

// The client of the device's game service. This build has no transport to
// the service, so every operation takes its unreachable branch: it logs and
// gives its failure value, and the configuration file decides.
class HearthAsyncService : public GameService {
  public:
    HearthAsyncService();
    void getHearthVersion() override;
    void registerTesselCallback() override;
    int getVelourSupported(const char* package) override;
    std::string getRusFile(const char* package) override;
    std::string get4DRusFile(const char* package) override;
    bool get4DSupport(const char* package) override;
    void sendWeaponToDova(const char* weapon) override;

  private:
    // 0 when the service is at hand, -1 when it cannot be found.
    int getHrthService();
};

// The service the layer talks to: the process-wide client unless a test has
// put another in its place.
GameService& gameService();
void setGameServiceForTesting(GameService* service);

}  // namespace velour::ctrl
