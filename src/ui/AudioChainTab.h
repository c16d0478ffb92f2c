#pragma once

#include "audio/AudioChainConfig.h"

#include <QHash>
#include <QWidget>

class AudioChainEditor;
class QCheckBox;
class QComboBox;

// The "EQ / LADSPA" tab: the transmit and receive chains for all modes, for one mode, or for
// one peer of a mode. A mode or peer without settings of its own uses the ones above it, and
// the editor starts from those.
class AudioChainTab : public QWidget {
    Q_OBJECT

public:
    explicit AudioChainTab(QWidget* parent = nullptr);

public slots:
    void commit();

signals:
    void dirtied();

protected:
    void showEvent(QShowEvent* event) override;

private:
    // The settings of one place: all modes (empty mode), a mode (empty peer) or a peer.
    struct Scope {
        bool own = false;
        zl::audio::AudioChainConfig tx;
        zl::audio::AudioChainConfig rx;
    };

    void onScopeChanged();
    void fillPeers();
    void keepEdits();
    void writeScope(const QString& mode, const QString& peer, const Scope& scope) const;

    QComboBox* modeCombo;
    QComboBox* peerCombo;
    QCheckBox* ownCheck;
    AudioChainEditor* txEditor;
    AudioChainEditor* rxEditor;
    QString mode;
    QString peer;
    // Scopes edited since the last commit, by mode and peer joined with 0x1F.
    QHash<QString, Scope> edited;
    bool loading = false;
    bool scanned = false;
};
