#pragma once

#include <QDialog>

class QLabel;

namespace corvel {

// What the character's property sheet shows.
struct CharacterProperties {
    QString name, description;
    QString voice;       // the speech engine's voice
    int rate = 0;        // words a minute
    int pitch = 0;       // the engine's 0-100
    QString balloon;     // "2 lines of 32 characters, DejaVu Sans 13 px"
    QString pushToTalk;  // the key held to give a voice command
    QString listening;   // whether voice commands are heard, and if not why
    QStringList commands; // "Exit Corvel: [Exit] Ombrel"
};

// The character's property sheet: its name and description, how it speaks and how it listens.
class PropertySheet final : public QDialog {
public:
    PropertySheet();
    void show(const CharacterProperties& properties);

private:
    QLabel* text_;
};

} // namespace corvel
