#include "Qon/include/lag/HardwareLagWriter.h"

#include "Qon/include/framework/HookTap.h"
#include "Qon/include/lag/QonLagIndex.h"
#include "platform/Velto/Scope.h"

namespace Qon {

using Ulnet::IntfId;

HardwareLagWriter::HardwareLagWriter( Velto::Ptr< Hardware::Lag::Config > config )
    : config_( std::move( config ) ) {}

void
HardwareLagWriter::findOwners() {
   for ( auto && [lag, group] : config_->lagIteratorConst() ) {
      for ( auto && [port, member] : group->memberIteratorConst() ) {
         if ( !member.shared() ) {
            owner_.emplace( port, lag );
         }
      }
   }
}

IntfId
HardwareLagWriter::owner( IntfId port ) const {
   auto lag = owner_.find( port );
   return lag ? *lag : IntfId();
}

bool
HardwareLagWriter::has( IntfId lag, IntfId port ) const {
   auto group = config_->lag( lag );
   return group && group->memberHas( port );
}

std::optional< HardwareLagWriter::Member >
HardwareLagWriter::member( IntfId lag, IntfId port ) const {
   return has( lag, port ) ? std::optional( config_->lag( lag )->member( port ) ) : std::nullopt;
}

void
HardwareLagWriter::memberIs( IntfId lag, IntfId port, const Member & member ) {
   const IntfId former = owner( port );
   Velto::FirstError error;
   if ( !member.shared() && former != lag ) {
      if ( former ) {
         error.run( [&] { memberDel( former, port ); } );
      }
      *owner_.emplace( port ).first = lag;
   } else if ( member.shared() && former == lag ) {
      owner_.erase( port );
   }
   QON_TELL_HOOK( Hardware::Lag, memberIs, lag, port, member );
   const auto config = config_;
   error.run( [&] { config->lagIs( lag, getLagIndex( lag ) ); } );
   error.run( [&] { config->lagIs( lag, getLagIndex( lag ) )->memberIs( port, member ); } );
   error.pass();
}

void
HardwareLagWriter::memberDel( IntfId lag, IntfId port ) {
   if ( owner( port ) == lag ) {
      owner_.erase( port );
   }
   if ( Velto::Ptr< Hardware::Lag::LagConfig > group = config_->lag( lag ) ) {
      QON_TELL_HOOK( Hardware::Lag, memberDel, lag, port );
      Velto::FirstError error;
      error.run( [&] { group->memberDel( port ); } );
      error.run( [&] { dropIfEmpty( lag ); } );
      error.pass();
   }
}

void
HardwareLagWriter::lagDel( IntfId lag ) {
   Velto::FirstError error;
   for ( IntfId port : members( lag ) ) {
      error.run( [&] { memberDel( lag, port ); } );
   }
   error.run( [&] { dropIfEmpty( lag ); } );
   error.pass();
}

void
HardwareLagWriter::dropIfEmpty( IntfId lag ) {
   auto group = config_->lag( lag );
   if ( group && group->members() == 0 ) {
      config_->lagDel( lag );
   }
}

std::vector< IntfId >
HardwareLagWriter::lags() const {
   std::vector< IntfId > lags;
   for ( auto && [lag, group] : config_->lagIteratorConst() ) {
      lags.push_back( lag );
   }
   return lags;
}

std::vector< IntfId >
HardwareLagWriter::members( IntfId lag ) const {
   std::vector< IntfId > members;
   if ( auto group = config_->lag( lag ) ) {
      for ( auto && [port, member] : group->memberIteratorConst() ) {
         members.push_back( port );
      }
   }
   return members;
}

} // namespace Qon
