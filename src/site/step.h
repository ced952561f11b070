#pragma once

#include "metadata/exceptions.h"
#include "site/child.h"

#include <stdexcept>
#include <string>

namespace site {

/// Runs one step of an act.  When it fails, its name stands before the cause.
/// \throw Interrupted as it is, for every other exception std::runtime_error.
template <class Work>
auto inStep(const std::string& step, const Work& work) {
    try {
        return work();
    } catch (const Interrupted&) {
        throw;
    } catch (const nimbo::FSAXMLException& failure) {
        throw std::runtime_error(step + ": " + failure.what());
    } catch (const std::exception& failure) {
        throw std::runtime_error(step + ": " + failure.what());
    }
}

} // namespace site
