// Configuration access by router and adapter record: finds the route and the channel, refuses what is known to be gone.
#include "topology/router_access.h"

#include "hostif/config_access.h"
#include "include/domain_record.h"
#include "topology/router_queries.h"

namespace {

constexpr std::uint32_t kControlAdapter = 0;

bool IsReachable(const USB4_SWITCH* router) {
  return router != nullptr && router->Domain != nullptr && !router->Unplugged.IsSet();
}

}  // namespace

KIV_RESULT KivUsb4SwRead(const USB4_SWITCH* router, std::uint32_t* buffer, const USB4_REGISTER_RANGE& range) {
  if (!IsReachable(router)) return kKivFailed;
  return KivUsb4CfgRead(router->Domain->ControlChannel, buffer, {KivUsb4SwitchRoute(router), kControlAdapter, range});
}

KIV_RESULT KivUsb4SwWrite(const USB4_SWITCH* router, const std::uint32_t* words, const USB4_REGISTER_RANGE& range) {
  if (!IsReachable(router)) return kKivFailed;
  return KivUsb4CfgWrite(router->Domain->ControlChannel, words, {KivUsb4SwitchRoute(router), kControlAdapter, range});
}

KIV_RESULT KivUsb4PortRead(const USB4_PORT* adapter, std::uint32_t* buffer, const USB4_REGISTER_RANGE& range) {
  const USB4_SWITCH* router = adapter->Router;
  if (!IsReachable(router)) return kKivFailed;
  return KivUsb4CfgRead(router->Domain->ControlChannel, buffer, {KivUsb4SwitchRoute(router), adapter->Number, range});
}

KIV_RESULT KivUsb4PortWrite(const USB4_PORT* adapter, const std::uint32_t* words, const USB4_REGISTER_RANGE& range) {
  const USB4_SWITCH* router = adapter->Router;
  if (!IsReachable(router)) return kKivFailed;
  return KivUsb4CfgWrite(router->Domain->ControlChannel, words, {KivUsb4SwitchRoute(router), adapter->Number, range});
}
