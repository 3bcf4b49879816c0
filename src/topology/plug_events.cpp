// Hot-plug reporting of Thunderbolt 3 routers, through their plug-events capability.
#include "topology/plug_events.h"

#include "topology/router_access.h"
#include "topology/router_queries.h"

KIV_RESULT KivUsb4PlugEventsActive(USB4_SWITCH* router, bool active) {
  if (KivUsb4SwitchIsUsb4(router)) return kKivOk;
  RouterCs4::Value cs4(router->Header[RouterCs4::kOffset]);
  cs4.Set<RouterCs4::NotificationTimeout>(0xFF);
  router->Header[RouterCs4::kOffset] = cs4.Word();
  const KIV_RESULT result = WriteRegister<RouterCs4>(router, 0, cs4);
  if (result != kKivOk) return result;
  return ModifyRegister<PlugEventsCs1>(router, router->PlugEventsCapability, [active](PlugEventsCs1::Value& cs1) {
    cs1.Set<PlugEventsCs1::LowMask>(1);
    cs1.Set<PlugEventsCs1::HighMask>(active ? 0x0 : 0xF);
  });
}
