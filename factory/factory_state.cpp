#include "factory/factory_state.h"

namespace calib {

constinit FactoryState factory_state{};

}  // namespace calib
