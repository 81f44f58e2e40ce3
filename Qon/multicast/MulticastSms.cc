// The state machines of single groups.

#include "Qon/multicast/MulticastTrace.h"

namespace Qon {

using Ulnet::IntfId;

namespace {

template< class Group >
std::vector< IntfId >
intfsOf( const Group & group ) {
   std::vector< IntfId > all;
   for ( auto i = group.intfIteratorConst(); i; ++i ) {
      all.push_back( i.key() );
   }
   return all;
}

} // namespace

MulticastSmBase::MulticastSmBase( Velto::Ptr< MulticastHelper > helper,
                                  const Bridging::MacVlanPair & macVlan )
    : helper_( std::move( helper ) ), macVlan_( macVlan ) {}

MulticastSmBase::~MulticastSmBase() = default;

void
MulticastSmBase::kivDoZombieReactors() {
   dying_ = true;
   helper_->forget( this );
   QonBaseSm::kivDoZombieReactors();
}

void
MulticastSmBase::handleInitialized() {
   if ( initialized() ) {
      const Velto::Hold alive( this );
      attachInputs();
      const bool held = vGroup() >= 0;
      handleIndexValid();
      if ( held ) {
         reviewIntfs(); // of a new one they have been
      }
   }
}

void
MulticastSmBase::handleIndexValid() {
   if ( !initialized() || dying_ ) {
      return;
   }
   if ( !groupWanted() ) {
      destroyMulticastGroup();
   } else if ( vGroup() < 0 ) {
      createMulticastGroup();
   }
}

void
MulticastSmBase::createMulticastGroup() {
   const Velto::Hold alive( this );
   Velto::FirstError error;
   error.run( [&] { helper()->createMulticastGroup( this ); } );
   if ( vGroup() >= 0 ) {
      error.run(
            [&] { helper()->createMulticastAddr( macVlan().mac(), macVlan().vlan(), vGroup() ); } );
   }
   if ( dying_ || !groupWanted() ) {
      destroyMulticastGroup(); // a hook changed that
   } else {
      error.run( [&] { reviewIntfs(); } );
   }
   error.pass();
}

void
MulticastSmBase::destroyMulticastGroup() {
   const Velto::Hold alive( this );
   helper()->destroyMulticastGroup( this );
   vGroup_ = -1;
}

void
MulticastSmBase::prepareToDie() {
   dying_ = true;
   destroyMulticastGroup();
}

void
MulticastSmBase::handleIntf( const IntfId & intf ) {
   const IntfId changed = intf;
   const bool wanted = intfWanted( changed );
   auto entry = helper()->entryList( vGroup() );
   if ( !entry ) {
      if ( wanted ) {
         QON_TRACE( multicastFacility, 5, "Multicast group is invalide, not adding intf ",
                    changed );
      }
      return;
   }
   if ( wanted ) {
      helper()->addIntf( changed, vGroup() );
   } else if ( isRouterIntf( changed ) && entry->isSynced( changed ) ) {
      QON_TRACE( multicastFacility, 5, changed,
                 " but is a router intf so not removing from hardware " );
   } else {
      helper()->removeIntf( changed, vGroup() );
   }
}

void
MulticastSmBase::reviewIntfs() {
   auto entry = helper()->entryList( vGroup() );
   if ( !entry ) {
      return;
   }
   auto intfs = keysOf< IntfId >( intfsWanted() );
   for ( auto members : { &entry->physicalPorts(), &entry->lagPorts() } ) {
      for ( auto & member : *members ) {
         intfs.emplace( member.intf );
      }
   }
   for ( auto && [intf, none] : intfs ) {
      handleIntf( intf );
   }
}

void
MulticastSmBase::handleVerify() {
   helper()->handleVerify( this );
}

void
MulticastSmBase::logTableFull() {
   multicastLog( multicastNoMacEntries, macVlan() );
}

// --- Of snooping -----------------------------------------------------------------------------------

IgmpSnoopingEthGroupSm::IgmpSnoopingEthGroupSm( Velto::Ptr< MulticastHelper > helper,
                                                Velto::Ptr< const Vlan > vlan,
                                                Velto::Ptr< const Group > group )
    : MulticastSmBase( std::move( helper ),
                       Bridging::MacVlanPair( group->groupAddr(), vlan->vlanId() ) ),
      vlan_( std::move( vlan ) ), group_( std::move( group ) ) {}

std::vector< IntfId >
IgmpSnoopingEthGroupSm::intfsWanted() const {
   return intfsOf( *group_ );
}

void
IgmpSnoopingEthGroupSm::attachInputs() {
   intfWatch_.attach( this, group_.ptr() );
   indexValidWatch_.attach( this, group_.ptr() );
   routerWatch_.attach( this, vlan_.ptr() );
}

/** One that was kept for its router goes with it; one that is no member does not become one. */
void
IgmpSnoopingEthGroupSm::handleRouterIntf( const IntfId & intf ) {
   if ( !isRouterIntf( intf ) && !intfWanted( intf ) ) {
      handleIntf( intf );
   }
}

void
IgmpSnoopingEthGroupSm::handleVerify() {
   verifyTries_ = 0;
   verify();
}

void
IgmpSnoopingEthGroupSm::handleVerifyClock() {
   verify();
}

void
IgmpSnoopingEthGroupSm::verify() {
   constexpr U32 tries = 3;
   constexpr Kiv::Seconds pause = 1.0;
   const Velto::Hold alive( this );
   if ( !initialized() || helper()->handleVerify( this ) ||
        ( !helper()->waitToVerify() && verifyTries_++ == tries ) || dying() ) {
      return;
   }
   QON_TRACE( multicastFacility, 5, "Verify didn't go through, scheduling again" );
   if ( !verifyClock_ ) {
      verifyClock_ = std::make_unique< VerifyClock >();
      verifyClock_->attach( this, Velto::make< Kiv::Clock >( helper()->wheel() ) );
   }
   ( *verifyClock_ )->timeMin( Kiv::now() + pause );
}

Velto::Ptr< IgmpSnoopingEthGroupSm >
IgmpSnoopingEthGroupSmIs( Velto::Ptr< MulticastHelper > helper,
                          Velto::Ptr< const Bridging::IgmpSnooping::VlanStatus > vlan,
                          Velto::Ptr< const Bridging::IgmpSnooping::EthGroupStatus > group ) {
   return smIs< IgmpSnoopingEthGroupSm >( std::move( helper ), std::move( vlan ),
                                          std::move( group ) );
}

// --- Of the operator -------------------------------------------------------------------------------

MulticastAddrSimpleSm::MulticastAddrSimpleSm( Velto::Ptr< MulticastHelper > helper,
                                              Velto::Ptr< const Group > group )
    : MulticastSmBase( std::move( helper ),
                       Bridging::MacVlanPair( group->key().addr(),
                                              Bridging::VlanId( group->key().vlanId() ) ) ),
      group_( std::move( group ) ) {}

std::vector< IntfId >
MulticastAddrSimpleSm::intfsWanted() const {
   return intfsOf( *group_ );
}

void
MulticastAddrSimpleSm::attachInputs() {
   intfWatch_.attach( this, group_.ptr() );
}

Velto::Ptr< MulticastAddrSimpleSm >
MulticastAddrSimpleSmIs( Velto::Ptr< MulticastHelper > helper,
                         Velto::Ptr< const Bridging::Multicast::StaticGroup > group ) {
   return smIs< MulticastAddrSimpleSm >( std::move( helper ), std::move( group ) );
}

} // namespace Qon
