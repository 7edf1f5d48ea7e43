#include "utility/management/util_MgmtEventArrivedArgs.h"

#include <utility>

CMgmtEventArrivedArgs::CMgmtEventArrivedArgs(const _variant_t& targetInstance) {
    SetTargetInstance(targetInstance);
}

CMgmtEventArrivedArgs::CMgmtEventArrivedArgs(const CMgmtEventArrivedArgs& other)
    : m_TargetInstance(other.m_TargetInstance) {}

CMgmtEventArrivedArgs& CMgmtEventArrivedArgs::operator=(const CMgmtEventArrivedArgs& other) {
    if (this == &other) return *this;
    _variant_t targetInstance(other.m_TargetInstance);
    m_TargetInstance = std::move(targetInstance);
    m_NewEvent.reset();
    return *this;
}

CMgmtEventArrivedArgs::~CMgmtEventArrivedArgs() = default;

CMgmtObjectBase* CMgmtEventArrivedArgs::GetNewEvent() {
    if (m_NewEvent == nullptr) m_NewEvent = std::make_unique<CMgmtObjectBase>(&m_TargetInstance, true);
    return m_NewEvent.get();
}

void CMgmtEventArrivedArgs::SetTargetInstance(const _variant_t& value) {
    m_TargetInstance = value;
}
