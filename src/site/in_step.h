#pragma once

#include "metadata/exceptions.h"
#include "site/child.h"
#include "site/interruption.h"

#include <stdexcept>
#include <string>

namespace site {

/// Runs one part of an act.  When it fails, the part's name stands before the cause.
/// \throw Interrupted as it is; BadEnd for a BadEnd; std::runtime_error in the place of every other exception.
template <class Work>
auto inStep(const std::string& step, const Work& work) {
    try {
        return work();
    } catch (const Interrupted&) {
        throw;
    } catch (const BadEnd& failure) {
        throw BadEnd(step + ": " + failure.what());
    } catch (const nimbo::FSAXMLException& failure) { // no handler for std::exception catches it
        throw std::runtime_error(step + ": " + failure.what());
    } catch (const std::exception& failure) {
        throw std::runtime_error(step + ": " + failure.what());
    }
}

} // namespace site
