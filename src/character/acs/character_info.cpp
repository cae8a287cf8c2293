#include "character/acs/character_info.h"

#include <new>
#include <ostream>

#include "character/acs/reader.h"

namespace corvel::acs {

void describeCharacter(const Character& c, std::ostream& out)
{
    out << "Name: " << c.name() << "\n"
        << "Description: " << c.description() << "\n"
        << "Frame size: " << c.width << " x " << c.height << "\n"
        << "Animations: " << c.animations.size() << "\n";
    for (const Animation& a : c.animations)
        out << "  " << a.name << ": " << a.frames.size() << (a.frames.size() == 1 ? " frame" : " frames") << "\n";
    out << "States: " << c.states.size() << "\n";
    for (const State& s : c.states) {
        out << "  " << s.name << ":";
        for (std::size_t i = 0; i < s.animations.size(); ++i) out << (i ? ", " : " ") << s.animations[i];
        out << "\n";
    }
}

int printCharacterInfo(const std::filesystem::path& file, std::ostream& out, std::ostream& err)
{
    Character character;
    try {
        character = readCharacterFile(file);
    } catch (const AcsError& e) {
        err << "corvel: cannot read the character " << file.string() << ": " << e.what() << "\n";
        return 1;
    } catch (const std::bad_alloc&) {
        err << "corvel: cannot read the character " << file.string() << ": out of memory\n";
        return 1;
    }
    describeCharacter(character, out);
    return 0;
}

} // namespace corvel::acs
