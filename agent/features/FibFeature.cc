#include "agent/features/FibFeature.h"

#include "agent/Agent.h"

namespace QonAgent {

void
FibFeature::inputsRead() {
   const String & path = agent_.setting( "fib" );
   if ( path.empty() ) {
      return;
   }
   Kiv::EventLoop * loop = Kiv::EventLoop::of( &agent_.scheduler() );
   if ( !loop ) {
      throw Velto::RangeError( "--fib " + path + ": tables are followed on real time only" );
   }
   attach( loop, path );
}

void
FibFeature::attach( Kiv::EventLoop * loop, const String & path,
                    Velto::Ptr< Qon::AdjPrefixCountStatus > counts ) {
   reader_ = nullptr;
   reader_ = Velto::make< FibReader >( loop, &agent_.scheduler(), path, std::move( counts ) );
}

std::vector< Counter >
FibFeature::counters() const {
   if ( !reader_ ) {
      return {};
   }
   return { { "IPv4 routes", reader_->routes( Ulnet::AddressFamily::ipv4 ) },
            { "IPv6 routes", reader_->routes( Ulnet::AddressFamily::ipv6 ) },
            { "routes that wait for their FEC", reader_->waiting() },
            { "routes that cannot be", reader_->refused() },
            { "FECs", reader_->fecs() },
            { "adjacencies", reader_->adjacencies().size() } };
}

FeatureKind
fibFeature() {
   return feature< FibFeature >( "fib",
                                 { { "fib", {}, "follow the forwarding table of this writer" } } );
}

} // namespace QonAgent
