#pragma once
// SIGTERM and SIGINT, which end a program, and SIGHUP, by its event loop.

#include <functional>

#include "platform/Kiv/EventLoop.h"

namespace QonAgent {

class SignalWatch : private Kiv::FdWatch {
 public:
   /** `reload` is called for SIGHUP; without it that signal is left alone. */
   explicit SignalWatch( Kiv::EventLoop & loop, std::function< void() > reload = nullptr );
   ~SignalWatch() override;
   bool stopped() const { return stopped_; }

 private:
   void ready( bool readable, bool writable ) override;

   const std::function< void() > reload_;
   bool stopped_ = false;
};

} // namespace QonAgent
