#include "metadata/read_names.h"

namespace nimbo::names {

constinit const std::array<Namespace, 4> namespaces{{
    {"s", LARKSPUR_WTX_NAMESPACE},
    {"php", LARKSPUR_WTX_NAMESPACE "/php"},
    {"cgi", LARKSPUR_WTX_NAMESPACE "/cgi"},
    {"w", LARKSPUR_WTX_NAMESPACE},
}};

} // namespace nimbo::names
