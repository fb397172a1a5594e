#include "tags/id3v2/slashartists.h"

namespace id3parser {

const char16_t* const slashArtistNames[] = {
    u"#/Tau", u"//LYSE//", u"+/-", u"11/5", u"20/20", u"24/7", u"3/4HadBeenEliminated", u"50/50 Twin",
    u"8 1/2 Souvenirs", u"A/Collision", u"A/S Dameteater & S\u00F8n", u"A/S Dameteater & Son", u"ac/dc",
    u"Akron/Family", u"Analogue I/O", u"Arktis/Air", u"Atlantic/Pacific", u"B/B/S/", u"Black Forest/Black Sea",
    u"Black/Note", u"Blood In/Blood Out", u"Body/Head", u"Brace/Choir", u"Carbon/Silicon", u"Clan/Destine",
    u"Cloak/Dagger", u"DD/MM/YYYY", u"De/Vision", u"Disaster/Peace", u"DJ /rupture", u"Either/Orchestra",
    u"Ensemble 10/10", u"F/I", u"F/A/V", u"Fr/Action", u"In/Humanity", u"Inhale/Exhale", u"Internal/External",
    u"Is/Is", u"Lo/Fi Pioneer", u"Love/Hate", u"M/A/R/R/S", u"Master/Slave Relationship", u"Mono/Poly",
    u"Mother/Father", u"Mundo Livre S/A", u"Music Projects/London", u"Ninjas w/Syringes", u"Pas/Cal",
    u"Prayer/Life", u"Project/Object", u"Quarter & 1/2", u"R/e/d/s", u"Repeat/Repeat", u"SW/MM/NG",
    u"The Sun Sawed in 1/2", u"The World/Inferno Friendship Society", u"The/Das", u"Their/They're/There",
    u"Tin/Bag", u"To/Die/For", u"V/Vm", u"Vio/Mir\u00E9", u"White/Light", u"Xero/G", u"Yamantaka // Sonic Titan",
    u"",
};

}  // namespace id3parser
