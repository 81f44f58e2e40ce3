#pragma once
// The library's state machines of link aggregation write Hardware::Lag::Config, the chip's programmer
// follows it and reports in Hardware::Lag::Status.

#include "Qon/include/lag/QonLagSm.h"
#include "chip/LagPart.h"
#include "conformance/Trial.h"
#include "conformance/lag/Contracts.h"

namespace QonConformance::Lag {

using Hardware::Lag::Result;
using Interface::LagMember;
using Ulnet::IntfId;

inline String
shown( const QonChip::HeldGroup & group ) {
   return joined( group, []( auto & member ) {
      return member.first.stringValue() + " (hardware port " +
             Kiv::toText( member.second.port().fapId() ) + "/" +
             Kiv::toText( member.second.port().port() ) + ")" +
             ( member.second.collecting() ? " in" : "" ) +
             ( member.second.distributing() ? " out" : "" ) +
             ( member.second.shared() ? " lent" : "" );
   } );
}

class LagStage {
 public:
   explicit LagStage( Trial & trial )
       : t( trial ), part( trial.part< QonChip::LagPart >( "LagPart" ) ) {
      for ( U32 n = 0; n < t.ports(); ++n ) {
         auto port = t.port( n );
         fapIdPorts->fapIdPortIs(
               port, t.chip->fapIdPort( port ).value_or( Qon::FapIdPort( 0, n + 1 ) ) );
      }
      t.publishes( lagStatus );
      makeProgrammer();
      prog = Qon::LagProgSmIs( lagConfig, lagStatus, fapIdPorts );
      lagSm = Qon::LagSmIs( t.acsd, dir, names, mlag, nullptr, prog );
      lagSm->initializedIs( true );
      prog->inputsReadIs( true );
   }

   void makeProgrammer() { chip = part.makeProgrammer( lagConfig, lagStatus ); }

   static IntfId lag( U32 n ) { return Ulnet::PortChannelIntfId::intfId( n + 1 ); }
   void join( U32 n, U32 port, bool collecting = true, bool distributing = true ) {
      dir->intfStatusIs( lag( n ) )->intfIs( t.port( port ), { collecting, distributing } );
      look();
   }
   void leave( U32 n, U32 port ) {
      if ( auto status = dir->intfStatus( lag( n ) ) ) {
         status->intfDel( t.port( port ) );
      }
      look();
   }
   void del( U32 n ) {
      dir->intfStatusDel( lag( n ) );
      look();
   }
   String name( U32 n, U32 port ) const {
      return t.port( port ).stringValue() + " in " + lag( n ).stringValue();
   }

   /** A port that the chip has in two groups as their own. */
   void look() {
      std::map< IntfId, IntfId > owner;
      for ( auto & [lag, group] : part.groups().value_or( QonChip::HeldGroups() ) ) {
         for ( auto & [port, member] : group ) {
            auto [first, fresh] = owner.emplace( port, member.shared() ? IntfId() : lag );
            if ( !fresh && !member.shared() && std::exchange( first->second, lag ) ) {
               t.broken( single, port.stringValue() + " in one group",
                         "it is in " + lag.stringValue() + " and in another" );
            }
         }
      }
   }
   std::optional< QonChip::HeldGroups > readBack() {
      return t.readBack( part.groups(), "the chip's groups" );
   }

   const Hardware::Lag::MemberStatus * status( IntfId lag, IntfId port ) const {
      auto group = lagStatus->lag( lag );
      found = group && group->memberHas( port ) ? group->member( port )
                                                : Hardware::Lag::MemberStatus();
      return group && group->memberHas( port ) ? &found : nullptr;
   }
   /** A member without a result; empty if all have one. */
   String withoutResult() const {
      for ( auto && [lag, group] : lagConfig->lagIteratorConst() ) {
         for ( auto && [port, member] : group->memberIteratorConst() ) {
            auto held = status( lag, port );
            if ( !held || held->result() == Result::pending ) {
               return port.stringValue() + " in " + lag.stringValue() +
                      ( held ? " is 'pending'" : " has no status" );
            }
         }
      }
      return "";
   }
   /** A status without configuration; empty if there is none. */
   String leftOver() const {
      for ( auto && [lag, group] : lagStatus->lagIteratorConst() ) {
         auto wanted = lagConfig->lag( lag );
         if ( !wanted ) {
            return lag.stringValue() + " still has a status";
         }
         for ( auto && [port, member] : group->memberIteratorConst() ) {
            if ( !wanted->memberHas( port ) ) {
               return port.stringValue() + " in " + lag.stringValue() + " still has a status";
            }
         }
      }
      return "";
   }
   /** A member whose flags are not those that were asked for. */
   String wrongFlags() const {
      for ( auto && [lag, group] : lagConfig->lagIteratorConst() ) {
         for ( auto && [port, member] : group->memberIteratorConst() ) {
            auto held = status( lag, port );
            if ( held && held->result() == Result::success &&
                 ( held->collecting() != member.collecting() ||
                   held->distributing() != member.distributing() ) ) {
               return port.stringValue() + " in " + lag.stringValue() + " has " +
                      held->stringValue();
            }
         }
      }
      return "";
   }

   /** A lent member that is not reported as one, or the other way round. */
   String wrongLoan() const {
      for ( auto && [lag, group] : lagConfig->lagIteratorConst() ) {
         for ( auto && [port, member] : group->memberIteratorConst() ) {
            auto held = status( lag, port );
            if ( held && held->result() == Result::success && held->shared() != member.shared() ) {
               return port.stringValue() + " in " + lag.stringValue() + " has " +
                      held->stringValue();
            }
         }
      }
      return "";
   }
   /** A member that carries flags though it is not programmed. */
   String flagsOfNothing() const {
      for ( auto && [lag, group] : lagStatus->lagIteratorConst() ) {
         for ( auto && [port, held] : group->memberIteratorConst() ) {
            if ( held.result() != Result::success &&
                 ( held.collecting() || held.distributing() ) ) {
               return port.stringValue() + " in " + lag.stringValue() + " has " +
                      held.stringValue();
            }
         }
      }
      return "";
   }

   void rest() {
      if ( !t.await( [&] {
              look();
              return withoutResult().empty();
           } ) ) {
         t.broken( result, "a result within " + Kiv::toText( t.answersWithin() ) + " s",
                   withoutResult() );
      }
      if ( !t.await( [&] { return leftOver().empty(); } ) ) {
         t.broken( removed, "no status of what is not configured", leftOver() );
      }
      if ( !t.await( [&] { return wrongFlags().empty(); } ) ) {
         t.broken( flags, "the flags that were asked for", wrongFlags() );
      }
      if ( !t.await( [&] { return wrongLoan().empty(); } ) ) {
         t.broken( shared, "lent members reported as such, and no others", wrongLoan() );
      }
      if ( String found = flagsOfNothing(); !found.empty() ) {
         t.broken( reported, "flags of members with success only", found );
      }
   }
   /** What has success by its status. */
   QonChip::HeldGroups wanted() const {
      QonChip::HeldGroups groups;
      for ( auto && [lag, group] : lagConfig->lagIteratorConst() ) {
         for ( auto && [port, member] : group->memberIteratorConst() ) {
            auto held = status( lag, port );
            if ( held && held->result() == Result::success ) {
               groups[lag][port] = member;
            }
         }
      }
      return groups;
   }
   /** At rest the chip holds what is configured and what its status says. */
   void judge( const Contract & contract, const Contract & tooMuch = removed ) {
      auto held = readBack();
      if ( !held ) {
         return;
      }
      auto groups = wanted();
      for ( auto & [lag, group] : groups ) {
         for ( auto & [port, member] : group ) {
            judgeMember( contract, lag, port, member, ( *held )[lag] );
         }
      }
      for ( auto & [lag, group] : *held ) {
         for ( auto & [port, member] : group ) {
            if ( !groups[lag].contains( port ) ) {
               t.broken( tooMuch, "no " + port.stringValue() + " in " + lag.stringValue(),
                         "it is there" );
            }
         }
      }
   }
   void judgeMember( const Contract & contract, IntfId lag, IntfId port,
                     const Hardware::Lag::Member & wanted, const QonChip::HeldGroup & held ) {
      auto found = held.find( port );
      const bool there = found != held.end();
      const Contract * broken = !there ? &contract : nullptr;
      if ( there && ( found->second.collecting() != wanted.collecting() ||
                      found->second.distributing() != wanted.distributing() ) ) {
         broken = &flags;
      } else if ( there && found->second.shared() != wanted.shared() ) {
         broken = &shared;
      } else if ( there && found->second.port() != wanted.port() ) {
         broken = &hardwarePort;
      }
      if ( broken ) {
         t.broken( *broken, lag.stringValue() + " with " + shown( { { port, wanted } } ),
                   "it has " + shown( held ) );
      }
   }
   /** The chip has the member while it works for a while. */
   void staysWith( const Contract & contract, U32 n, U32 port ) {
      for ( U32 round = 0; round < 10; ++round ) {
         auto held = readBack();
         if ( held && !( *held )[lag( n )].contains( t.port( port ) ) ) {
            t.broken( contract, name( n, port ) + " all the time", "it left" );
         }
         t.run( Trial::step );
      }
   }
   void succeeded( const Contract & contract, U32 n, U32 port ) {
      auto held = status( lag( n ), t.port( port ) );
      if ( !held || held->result() != Result::success ) {
         t.broken( contract, name( n, port ) + " with success",
                   held ? Kiv::toText( held->result() ) : String( "no status" ) );
      }
   }

   Trial & t;
   QonChip::LagPart & part;
   Ptr< Hardware::Lag::Config > lagConfig =
         Velto::make< Hardware::Lag::Config >( "hardware/lag/config" );
   Ptr< Hardware::Lag::Status > lagStatus =
         Velto::make< Hardware::Lag::Status >( "hardware/lag/status" );
   Ptr< Interface::EthLagIntfStatusDir > dir =
         Velto::make< Interface::EthLagIntfStatusDir >( "status" );
   Ptr< ::Lag::Input::IntfDeviceNameDir > names =
         Velto::make< ::Lag::Input::IntfDeviceNameDir >( "names" );
   Ptr< Mlag::Status > mlag = Velto::make< Mlag::Status >( "mlag" );
   Ptr< Hardware::FapIdPortDir > fapIdPorts = Velto::make< Hardware::FapIdPortDir >( "ports" );
   Ptr< Velto::Node > chip;
   Ptr< Qon::LagProgSm > prog;
   Ptr< Qon::LagSm > lagSm;

 private:
   mutable Hardware::Lag::MemberStatus found;
};

} // namespace QonConformance::Lag
