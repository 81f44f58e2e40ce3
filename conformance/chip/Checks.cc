// Checks of the chip itself, whatever parts it has.

#include <map>
#include <set>

#include "conformance/Trial.h"
#include "conformance/chip/Contracts.h"
#include "platform/Kiv/Alarm.h"

namespace QonConformance::Chip {

namespace {

/** The clocks of whoever pumps fire in their own time: not inside, and not early. */
void
checkPump( Trial & t ) {
   bool pumping = false;
   String fired;
   Kiv::Alarm alarm( [&] { fired = pumping ? "a clock fired inside" : ""; },
                     t.scheduler.timerWheel() );
   for ( U32 round = 0; round < 4; ++round ) {
      alarm.in( Trial::step / 2 );
      const Kiv::Seconds before = t.scheduler.time();
      pumping = true;
      t.chip->pump( Trial::step );
      pumping = false;
      t.did( "pump( " + Kiv::toText( Trial::step ) + " )" );
      if ( t.scheduler.time() != before ) {
         fired = "the time moved by " + Kiv::toText( t.scheduler.time() - before ) + " s";
      }
      if ( !fired.empty() ) {
         t.broken( pump, "the time as it was, and clocks that wait for theirs", fired );
      }
      t.scheduler.runFor( Trial::step );
   }
}

void
checkPorts( Trial & t ) {
   std::set< QonChip::IntfId > seen;
   std::map< Qon::FapIdPort, QonChip::IntfId > owner;
   for ( U32 n = 0; n < t.ports(); ++n ) {
      const auto port = t.port( n );
      if ( !Ulnet::EthIntfId::isEthIntfId( port ) || !seen.insert( port ).second ) {
         t.broken( ports, "physical interfaces, each once", "ports() with " + port.stringValue() );
      }
      const auto number = t.chip->fapIdPort( port );
      if ( !number ) {
         continue;
      }
      auto [other, fresh] = owner.emplace( *number, port );
      if ( !fresh || t.chip->fapIdPort( port ) != number ) {
         t.broken( ports,
                   "a hardware port of its own for " + port.stringValue() + ", always the same",
                   number->stringValue() + ( fresh ? "" : ", as " + other->second.stringValue() ) );
      }
   }
   if ( !owner.empty() && owner.size() != t.ports() ) {
      t.broken( ports, "a hardware port for each of ports(), or for none",
                Kiv::toText( U32( owner.size() ) ) + " for " + Kiv::toText( t.ports() ) );
   }
   t.did( "asked for " + Kiv::toText( t.ports() ) + " ports" );
}

constexpr Check checks[] = { { pump, checkPump }, { ports, checkPorts } };

} // namespace

extern const Feature feature{
      "chip", contracts, checks, {}, []( const QonChip::Chip & ) { return String(); } };

} // namespace QonConformance::Chip
