#include "agent/features/FibFeature.h"

#include "agent/Agent.h"

namespace QonAgent {

FibFeature::FibFeature( Agent & agent )
    : agent_( agent ), part_( agent.chip().part< QonChip::AdjacencyPart >() ) {}

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
   if ( installer_ ) {
      installer_->end();
   }
   installer_ = nullptr;
   reader_ = nullptr;
   reader_ = Velto::make< FibReader >( loop, &agent_.scheduler(), path, std::move( counts ) );
   if ( part_ ) {
      installer_ = Velto::make< FibInstaller >( reader_, *part_, &agent_.scheduler() );
   }
}

std::vector< Counter >
FibFeature::counters() const {
   if ( !reader_ ) {
      return {};
   }
   std::vector< Counter > all = { { "IPv4 routes", reader_->routes( Ulnet::AddressFamily::ipv4 ) },
                                  { "IPv6 routes", reader_->routes( Ulnet::AddressFamily::ipv6 ) },
                                  { "routes that wait for their FEC", reader_->waiting() },
                                  { "routes that cannot be", reader_->refused() },
                                  { "FECs", reader_->fecs() },
                                  { "adjacencies", reader_->adjacencies().size() } };
   if ( installer_ ) {
      using State = FibChipState;
      const auto in = [this]( State state ) { return installer_->adjacencies( state ); };
      all.insert( all.end(),
                  { { "FECs in the chip", installer_->fecs() },
                    { "adjacencies in the chip", in( State::programmed ) },
                    { "adjacencies without an answer", in( State::requested ) },
                    { "adjacencies without room", in( State::noRoom ) + in( State::noGroup ) },
                    { "adjacencies that failed", in( State::failed ) },
                    { "FECs interrupted for room", installer_->interrupted() },
                    { "answers that nobody waited for", installer_->unasked() } } );
   }
   return all;
}

FeatureKind
fibFeature() {
   return feature< FibFeature >( "fib",
                                 { { "fib", {}, "follow the forwarding table of this writer" } } );
}

} // namespace QonAgent
