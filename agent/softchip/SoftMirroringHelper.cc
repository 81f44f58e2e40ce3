#include "agent/softchip/SoftMirroringHelper.h"

#include "Qon/include/framework/Reconcile.h"

namespace SoftChip {

using QonTypes::TableAddStatus;

SoftMirroringHelper::SoftMirroringHelper( MirrorTable & table,
                                          Velto::Ptr< Mirroring::HwCapability > capability,
                                          Velto::Ptr< Mirroring::HwStatus > status )
    : table_( table ), capability_( std::move( capability ) ), status_( std::move( status ) ) {
   table_.hook.is( this );
   capability_->maxSupportedSessionsIs( table_.sessionsAtMost() );
   status_->reconciledIs( false );
   status_->sessionDelAll();
   for ( auto & [name, session] : table_.sessions() ) {
      publish( name );
   }
   table_.completions().add( [&table, ticket = table_.hook.ticket()] {
      if ( auto hearer = table.hook.of( ticket ) ) {
         hearer->reconciled();
      }
   } );
}

void
SoftMirroringHelper::limitsChanged() {
   capability_->maxSupportedSessionsIs( table_.sessionsAtMost() );
   capability_->sourceLimitsVersionIs( capability_->sourceLimitsVersion() + 1 );
}

Mirroring::SessionAttributes
SoftMirroringHelper::attributes( const String & name ) const {
   auto session = mirroringSm() ? mirroringSm()->session( name ) : nullptr;
   return session ? session->config()->attributes() : Mirroring::SessionAttributes();
}

void
SoftMirroringHelper::publish( const String & name ) {
   auto held = table_.sessions().find( name );
   if ( held == table_.sessions().end() ) {
      status_->sessionDel( name );
      return;
   }
   const auto & session = held->second;
   auto published = status_->sessionIs( name );
   published->mirrorGroupIs( session.group );
   published->tunnelTypeIs( session.tunnel.type() );
   Qon::reconcile< IntfId >(
         published->targetIntfIteratorConst(), session.targets,
         [&]( IntfId port ) { published->targetIntfDel( port ); },
         [&]( IntfId port ) { published->targetIntfIs( port ); } );
   Qon::reconcile< IntfId >(
         published->srcIntfIteratorConst(), session.sources,
         [&]( IntfId port ) { published->srcIntfDel( port ); }, []( IntfId ) {} );
   for ( auto & [port, source] : session.sources ) {
      published->srcIntfIs( port, source.direction );
   }
}

bool
SoftMirroringHelper::createMirror( const String & name, int mirrorGroup, int, IntfId destination,
                                   bool ) {
   const bool done = table_.targetIs( name, mirrorGroup, destination, attributes( name ) );
   publish( name );
   return done;
}

bool
SoftMirroringHelper::removeMirror( const String & name, int, int,
                                   const Qon::QonPortList & destinations ) {
   for ( IntfId port : destinations ) {
      table_.targetDel( name, port );
   }
   publish( name );
   return true;
}

bool
SoftMirroringHelper::createGreTunnelMirror( const String & name, int mirrorGroup, int,
                                            const Mirroring::TunnelInfo & tunnel,
                                            const Tunnel::Resolution & resolution ) {
   const bool done = table_.tunnelIs( name, mirrorGroup, tunnel, resolution, attributes( name ) );
   publish( name );
   return done;
}

bool
SoftMirroringHelper::updateGreTunnelMirror( const String & name, int mirrorGroup, int egressId,
                                            const Mirroring::TunnelInfo & tunnel,
                                            const Tunnel::Resolution & resolution ) {
   return createGreTunnelMirror( name, mirrorGroup, egressId, tunnel, resolution );
}

bool
SoftMirroringHelper::removeGreTunnelMirror( const String & name, int, int ) {
   table_.tunnelDel( name );
   publish( name );
   return true;
}

std::optional< MirrorFilter >
SoftMirroringHelper::filter( const String & name, IntfId intf ) const {
   auto session = mirroringSm() ? mirroringSm()->session( name ) : nullptr;
   auto local = session ? session->srcIntfLocal( intf ) : nullptr;
   if ( !local || local->wanted().aclName().empty() ) {
      return std::nullopt;
   }
   MirrorFilter filter = { local->wanted().filter().aclType, {} };
   auto lists = mirroringSm()->inputs().aclConfig->type( filter.type );
   if ( auto list = lists ? lists->acl( local->wanted().aclName() ) : nullptr ) {
      for ( auto && [number, rule] : list->ruleIteratorConst() ) {
         filter.rules.push_back( rule );
      }
   }
   return filter;
}

bool
SoftMirroringHelper::addSourceToHardware( const String & name, int, int, IntfId intf,
                                          Direction direction ) {
   const bool done = table_.sourceIs( name, intf, direction, filter( name, intf ) );
   publish( name );
   return done;
}

bool
SoftMirroringHelper::removeSourceFromHardware( const String & name, int, int, IntfId intf,
                                               Direction, bool ) {
   table_.sourceDel( name, intf );
   publish( name );
   return true;
}

void
SoftMirroringHelper::filterDone( const String & name, IntfId port, bool applied ) {
   status_->sessionIs( name )->aclStatusIs( port, applied ? TableAddStatus::success
                                                          : TableAddStatus::full );
}

bool
SoftMirroringHelper::verifySinglePort( const String & name, int, int, IntfId destination ) {
   auto held = table_.sessions().find( name );
   return held != table_.sessions().end() && held->second.targets.contains( destination );
}

bool
SoftMirroringHelper::verifyGreTunnelMirror( const String & name, int, int,
                                            const Mirroring::TunnelInfo & tunnel ) {
   auto held = table_.sessions().find( name );
   return held != table_.sessions().end() && held->second.tunnel == tunnel;
}

} // namespace SoftChip
