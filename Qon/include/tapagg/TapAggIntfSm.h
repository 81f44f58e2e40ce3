#pragma once
// One port in tap aggregation, as a tap port or as a tool port: its settings and its groups.
//
//    TapAggSm --1:n--> TapAggTapSm  \ TapAggIntfSm: set up, kept up to date, taken back
//             --1:n--> TapAggToolSm /          |
//                                              v hooks of TapAggHelper
//
//    set-up: the port, its size, its identity, strips, its groups; then it is initialized, and counted
//    the way back: the groups, what is not neutral in reverse order, the port; then it is not counted
//
// Each setting is a line of QON_TAP_SETTINGS or QON_TOOL_SETTINGS: handleX hears it, configureX tells
// the chip, once for each value.
//
// Invariants
// 1. What the chip was told is remembered when the hook has returned; what equals that is not told
//    again.
// 2. A port is in hardware while the mode is on and it is no member of a port-channel.
// 3. A tap port has one group in hardware at most: that of its names, joined. A tool port is in the
//    groups of its names and in those that join one of them, while it is active.
//
// Ownership: owned by TapAggSm, whom it points back to.

#include "Qon/include/tapagg/TapAggHelper.h"
#include "Qon/include/tapagg/TapAggRecords.h"

namespace Qon {

class TapAggSm;

/** Names of groups. */
using TapAggNames = std::vector< String >;

/** Type, attribute of the configuration, handleX, configureX, hook; in the order of the set-up. */
#define QON_TAP_SETTINGS( X )                                                                      \
   X( U32, truncationSize, TapTruncationSize, TruncationSize, tapTruncationSizeIs )                \
   X( Bridging::IdentityTuple, identity, TapIdentity, TapIdentity, identityTagIs )                 \
   X( Ulnet::EthAddr, macAddress, TapMacAddress, TapMacAddress, tapMacAddressIs )                  \
   X( U32, headerRemove, TapHeaderRemove, TapHeaderRemove, tapHeaderRemoveIs )                     \
   X( bool, greStrip, TapGreStrip, TapGreStrip, tapGreStripIs )                                    \
   X( bool, vxlanStrip, TapVxlanStrip, TapVxlanStrip, tapVxlanStripIs )                            \
   X( bool, mplsPop, TapMplsPop, TapMplsPop, tapMplsPopIs )
#define QON_TOOL_SETTINGS( X )                                                                     \
   X( U32, truncationSize, ToolTruncationSize, TruncationSize, toolTruncationSizeIs )              \
   X( Bridging::Input::ToolIdentityMode, identityTagging, ToolIdentityTagging,                     \
      ToolIdentityTagging, taggingOnEgressIs )                                                     \
   X( U8, dot1qRemove, ToolDot1qRemove, ToolDot1qRemove, toolDot1qRemoveIs )                       \
   X( bool, brStrip, ToolBrStrip, ToolBrStrip, toolBrStripIs )                                     \
   X( bool, vnStrip, ToolVnStrip, ToolVnStrip, toolVnStripIs )                                     \
   X( bool, mplsPop, ToolMplsPop, ToolMplsPop, toolMplsPopIs )

/** What the chip was told of a port in one role. */
class TapAggHwPort {
 public:
   using IntfId = Ulnet::IntfId;
   using Groups = std::vector< U32 >;

   /** Its set-up is complete. */
   bool initialized() const { return initialized_; }
   /** The chip was told that it is such a port. */
   bool told() const { return told_; }
   bool isLag() const { return isLag_; }
   /** In order. */
   const Groups & groups() const { return groups_; }
   bool isIn( U32 group ) const;
   /** Of a tap port; 0 is none. */
   U32 group() const { return groups_.empty() ? 0 : groups_.front(); }

 private:
   friend class TapAggIntfSm;
   friend class TapAggTapSm;
   friend class TapAggToolSm;
   bool initialized_ = false;
   bool told_ = false;
   bool isLag_ = false;
   Groups groups_;
   Kiv::DenseMap< U32, KeySet< IntfId > > members_; // of a port-channel, that were told, by group
};

/** Why frames do not go the way that is configured. */
enum class TapAggReason : U8 {
   none,
   mode,      // the switch is not in tap-aggregation mode
   lagMember, // its port-channel counts
   noGroups,  // none is configured
   pending,   // the hardware has none free for at least one of its names
   inactive,  // others say that the tool port cannot take frames
};

class TapAggIntfSm : public QonBaseSm {
 public:
   using IntfId = Ulnet::IntfId;

   IntfId intf() const { return intf_; }
   TapAggRole role() const { return role_; }
   const TapAggHwPort & hw() const { return hw_; }
   /** The groups that it uses, whether they have an id or not, in order. */
   const TapAggNames & names() const { return names_; }
   TapAggReason reason() const;

   void handleInitialized() override;

   virtual void configureTruncationSize( U32 size ) = 0;

 protected:
   friend class TapAggSm;
   TapAggIntfSm( TapAggSm * root, IntfId intf, TapAggRole role )
       : root_( root ), intf_( intf ), role_( role ) {}

   TapAggHelper * helper() const;
   /** Whether what is configured of the port counts: it is no member of a port-channel. */
   bool counts() const;
   /** Something of the configuration has changed. */
   void changed();

   // The steps of TapAggSm
   /** Brings to the chip what is wanted now. */
   void review();
   /** Takes everything back. */
   void takeBack();
   /** The chip has nothing of it any more, or takes nothing back. */
   void forget();
   /** Asks the chip whether it holds what it was told, or nothing of the port. */
   void verify() const;
   void verifyAbsent() const;

   // What the roles differ in
   virtual void attach() = 0;
   virtual void configurePort( bool enable ) = 0;
   /** In order. */
   virtual TapAggNames wantedNames() const = 0;
   /** In order, or all neutral in reverse order. */
   virtual void reviewSettings( bool wanted ) = 0;
   virtual void forgetSettings() = 0;
   virtual void reviewGroups( const TapAggNames & wanted ) = 0;
   virtual void removeGroups() = 0;
   virtual bool active() const { return true; }
   virtual bool verifyPort( bool enabled ) const = 0;
   virtual bool verifyGroup( U32 group ) const = 0;
   virtual void verifySettings() const = 0;

   /** Calls `appliers` of `sm` in their order, or, where the port goes, in reverse. */
   template< class Sm, class Settings, std::size_t n >
   static void applySettings( Sm & sm, void ( Sm::*const ( &appliers )[n] )( const Settings & ),
                              const Settings & want, bool goes ) {
      for ( std::size_t i = 0; i < n; ++i ) {
         const auto apply = appliers[goes ? n - 1 - i : i];
         ( sm.*apply )( want );
      }
   }

   /** Puts the port into the lists of the group. */
   void noteGroup( U32 group ) const;
   /** An association went: the group may be nobody's by now. */
   void leftGroup() const;
   /** The finding that the chip does not hold it. */
   void expect( bool holds, const String & what ) const;

   TapAggSm * const root_;
   const IntfId intf_;
   const TapAggRole role_;
   TapAggHwPort hw_;

 private:
   void useNames( const TapAggNames & wanted );
   void leaveNames( const TapAggNames & wanted );

   TapAggNames names_;
};

/** A tap port. */
class TapAggTapSm : public TapAggIntfSm {
 public:
   using Config = Bridging::Input::TapPortConfig;
   TapAggTapSm( TapAggSm * root, Velto::Ptr< const Config > config );

   const Config * config() const { return config_.ptr(); }

   void handleGroups() { changed(); }
   /** Its frames pass as they are from now on, or do not any more. */
   void handleTapRawIntf() { changed(); }
   void handleTapGreStripForEp( const Ulnet::IpGenAddr & ) { changed(); }
#define QON_TAP_HANDLER( Type, name, Handler, Configured, hook )                                   \
   void handle##Handler() {                                                                        \
      changed();                                                                                   \
   }
   QON_TAP_SETTINGS( QON_TAP_HANDLER )
#undef QON_TAP_HANDLER

   // How the chip is told
   virtual void configureTapPort( bool enable );
   void configureTruncationSize( U32 size ) override;
   virtual void configureTapIdentity( const Bridging::IdentityTuple & identity );
   virtual void configureTapMacAddress( Ulnet::EthAddr address );
   virtual void configureTapHeaderRemove( U32 size );
   virtual void configureTapGreStrip( bool strip );
   virtual void configureTapGreStripForEp( const Ulnet::IpGenAddr & endpoint, bool strip );
   virtual void configureTapVxlanStrip( bool strip );
   virtual void configureTapMplsPop( bool pop );

 private:
   struct Settings {
#define QON_TAP_FIELD( Type, name, Handler, Configured, hook ) Type name{};
      QON_TAP_SETTINGS( QON_TAP_FIELD )
#undef QON_TAP_FIELD
      KeySet< Ulnet::IpGenAddr > greStripForEp;
   };
   using Apply = void ( TapAggTapSm::* )( const Settings & want );

   static void heard( void * self, const Kiv::Entity &, int attribute, const void * key );
   void attach() override;
   void configurePort( bool enable ) override {
      configureTapPort( enable );
   }
   TapAggNames wantedNames() const override;
   void reviewSettings( bool wanted ) override;
   void forgetSettings() override {
      applied_ = {};
   }
   void reviewGroups( const TapAggNames & wanted ) override;
   void removeGroups() override;
   bool verifyPort( bool enabled ) const override;
   bool verifyGroup( U32 group ) const override;
   void verifySettings() const override;

   Settings wantedSettings() const;
#define QON_TAP_APPLY( Type, name, Handler, Configured, hook )                                     \
   void apply##Handler( const Settings & want );
   QON_TAP_SETTINGS( QON_TAP_APPLY )
#undef QON_TAP_APPLY
   void applyTapGreStripForEp( const Settings & want );

   const Velto::Ptr< const Config > config_;
   Settings applied_;
   Kiv::EntityWatch configWatch_;
};

/** A tool port. */
class TapAggToolSm : public TapAggIntfSm {
 public:
   using Config = Bridging::Input::ToolPortConfig;
   TapAggToolSm( TapAggSm * root, Velto::Ptr< const Config > config );

   const Config * config() const { return config_.ptr(); }

   void handleToolGroupMembership( const String & group );
#define QON_TOOL_HANDLER( Type, name, Handler, Configured, hook )                                  \
   void handle##Handler() {                                                                        \
      changed();                                                                                   \
   }
   QON_TOOL_SETTINGS( QON_TOOL_HANDLER )
#undef QON_TOOL_HANDLER

   // How the chip is told
   virtual void configureToolPort( bool enable );
   void configureTruncationSize( U32 size ) override;
   virtual void configureToolIdentityTagging( Bridging::Input::ToolIdentityMode mode );
   virtual void configureToolDot1qRemove( U8 tags );
   virtual void configureToolBrStrip( bool strip );
   virtual void configureToolVnStrip( bool strip );
   virtual void configureToolMplsPop( bool pop );

 private:
   struct Settings {
#define QON_TOOL_FIELD( Type, name, Handler, Configured, hook ) Type name{};
      QON_TOOL_SETTINGS( QON_TOOL_FIELD )
#undef QON_TOOL_FIELD
      bool operator==( const Settings & ) const = default;
   };
   using Apply = void ( TapAggToolSm::* )( const Settings & want );

   static void heard( void * self, const Kiv::Entity &, int attribute, const void * key );
   void attach() override;
   void configurePort( bool enable ) override {
      configureToolPort( enable );
   }
   TapAggNames wantedNames() const override;
   void reviewSettings( bool wanted ) override;
   void forgetSettings() override {
      applied_ = {};
   }
   void reviewGroups( const TapAggNames & wanted ) override;
   void removeGroups() override;
   bool active() const override;
   bool verifyPort( bool enabled ) const override;
   bool verifyGroup( U32 group ) const override;
   void verifySettings() const override;

   Settings wantedSettings() const;
   std::vector< U32 > wantedGroups( const TapAggNames & names ) const;
   void reviewMembers( U32 group, bool wanted );
   void removeGroup( U32 group );
#define QON_TOOL_APPLY( Type, name, Handler, Configured, hook )                                    \
   void apply##Handler( const Settings & want );
   QON_TOOL_SETTINGS( QON_TOOL_APPLY )
#undef QON_TOOL_APPLY

   const Velto::Ptr< const Config > config_;
   Settings applied_;
   Kiv::EntityWatch configWatch_;
};

} // namespace Qon
