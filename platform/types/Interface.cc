#include "platform/types/Interface.h"

#include <iterator>

#include "platform/Kiv/Describe.h"

KIV_DEFINE( Interface::EthLagIntfStatus )
KIV_DEFINE( Interface::EthLagIntfStatusDir )
KIV_DEFINE( Interface::EthPhyIntfStatus )
KIV_DEFINE( Interface::EthPhyIntfStatusDir )
KIV_DEFINE( Interface::EthLagIntfConfig )
KIV_DEFINE( Interface::EthLagIntfConfigDir )

namespace Interface {

namespace {

constexpr U64 gigabit = 1'000'000; // in kilobits

/** By the number of the enumerator. */
constexpr U64 kbpsOf[] = { 0,
                           10'000,
                           100'000,
                           gigabit,
                           2'500'000,
                           5 * gigabit,
                           10 * gigabit,
                           25 * gigabit,
                           40 * gigabit,
                           50 * gigabit,
                           100 * gigabit,
                           200 * gigabit,
                           400 * gigabit,
                           800 * gigabit };

} // namespace

U64
EthSpeedApi::speedKbps( EthSpeed speed ) {
   return U8( speed ) < std::size( kbpsOf ) ? kbpsOf[U8( speed )] : 0;
}

EthSpeed
EthSpeedApi::fromKbps( U64 kbps ) {
   for ( U8 n = 0; n < std::size( kbpsOf ); ++n ) {
      if ( kbpsOf[n] == kbps ) {
         return EthSpeed( n );
      }
   }
   return EthSpeed::speedUnknown;
}

EthLagIntfStatus::EthLagIntfStatus( const Ulnet::IntfId & lag ) : intfId_( lag ) {}
EthPhyIntfStatus::EthPhyIntfStatus( const Ulnet::IntfId & intf ) : intfId_( intf ) {}
EthLagIntfConfig::EthLagIntfConfig( const Ulnet::IntfId & intf ) : intfId_( intf ) {}

} // namespace Interface
